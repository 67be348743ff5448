#include "cache/pg_cache.h"

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "cache/index_sql.h"
#include "cache/pg_runner.h"
#include "cache/query_each_resource.h"
#include "cache/stored_result.h"

namespace VQFeature {
namespace {

// Runs read(sql) under the cache's lock through the reconnecting connection; its answer.
template <class Read>
auto readIndex(PgConnection& connection, std::mutex& mutex, Read read) {
    std::lock_guard<std::mutex> lock(mutex);
    decltype(read(std::declval<SqlRunner&>())) answer{};
    connection.run([&] {
        PgRunner sql(connection);
        answer = read(sql);
    });
    return answer;
}

constexpr const char* kColumns =
    "asset_id text,algorithm_key text,algorithm_type integer,algorithm_string_type text,blob bytea";

// Serialises table creation between processes starting at once (CREATE TABLE IF NOT
// EXISTS alone races on the catalogue). The number is arbitrary but fixed.
constexpr const char* kSchemaLock = "SELECT pg_advisory_xact_lock(7716226149)";

void createOrCheckTable(PgConnection& connection) {
    connection.transact([&] {
        connection.command(kSchemaLock);
        PgRows columns = connection.command(
            "SELECT string_agg(column_name || ' ' || data_type, ',' ORDER BY ordinal_position)"
            " FROM information_schema.columns"
            " WHERE table_schema = current_schema() AND table_name = 'vqfe_results'");
        if (columns.isNull(0, 0)) {
            connection.command(
                "CREATE TABLE vqfe_results ("
                " asset_id text NOT NULL,"
                " algorithm_key text NOT NULL,"
                " algorithm_type integer NOT NULL,"
                " algorithm_string_type text NOT NULL,"
                " blob bytea,"
                " PRIMARY KEY (asset_id, algorithm_key))");
            connection.command("CREATE INDEX vqfe_results_by_type ON vqfe_results (algorithm_type)");
            connection.command("CREATE INDEX vqfe_results_by_name ON vqfe_results (algorithm_string_type)");
        } else if (columns.bytes(0, 0) != kColumns) {
            throw std::runtime_error("result store " + connection.name() +
                                     ": table vqfe_results belongs to something else (columns " + columns.bytes(0, 0) +
                                     ")");
        }
        PgRunner sql(connection);
        checkFormat(sql, connection.name());
        createIndexTables(sql, "vqfe_results");
    });
}

}  // namespace

bool PgCache::isUri(const std::string& text) {
    return text.rfind("postgresql://", 0) == 0 || text.rfind("postgres://", 0) == 0;
}

void PgCache::prepareResults(PgConnection& connection) {
    createOrCheckTable(connection);
    connection.prepare("vqfe_save",
                       "INSERT INTO vqfe_results (asset_id, algorithm_key, algorithm_type, algorithm_string_type, blob)"
                       " VALUES ($1, $2, $3, $4, $5) ON CONFLICT (asset_id, algorithm_key) DO UPDATE SET"
                       " algorithm_type = EXCLUDED.algorithm_type,"
                       " algorithm_string_type = EXCLUDED.algorithm_string_type, blob = EXCLUDED.blob");
}

void PgCache::saveRows(PgConnection& connection, const std::vector<std::shared_ptr<Result>>& results,
                       const ImageRecord* image) {
    PgRunner sql(connection);
    for (const auto& result : results) {
        if (!result) continue;
        const std::string_view blob = blobBytes(*result);
        connection.execute("vqfe_save", {PgParam::text(result->assetId), PgParam::text(result->algorithmKey),
                                          PgParam::number(static_cast<int>(result->algorithmType)),
                                          PgParam::text(result->algorithmStringType),
                                          PgParam::bytes(blob.data(), blob.size())});
        writeIndexRows(sql, *result);
    }
    if (image) writeImageRecord(sql, *image);
}

PgCache::PgCache(const std::string& uri) : connection_(uri) {
    prepareResults(connection_);
    connection_.prepare("vqfe_query",
                        "SELECT algorithm_type, algorithm_string_type, blob FROM vqfe_results"
                        " WHERE asset_id = $1 AND algorithm_key = $2");
    connection_.prepare("vqfe_clear_asset", "DELETE FROM vqfe_results WHERE asset_id = $1");
    connection_.prepare("vqfe_clear_type",
                        "DELETE FROM vqfe_results WHERE algorithm_type = $1 AND algorithm_string_type = ''");
    connection_.prepare("vqfe_clear_name",
                        "DELETE FROM vqfe_results WHERE algorithm_string_type = $1"
                        " OR (algorithm_string_type = '' AND algorithm_type::text = $1)");
    connection_.prepare("vqfe_count", "SELECT count(*) FROM vqfe_results");
}

std::shared_ptr<Result> PgCache::queryLocked(const std::string& assetId, const std::string& algorithmKey) {
    std::shared_ptr<Result> hit;
    connection_.run([&] {
        PgRows rows = connection_.execute("vqfe_query", {PgParam::text(assetId), PgParam::text(algorithmKey)});
        if (rows.size() == 0) return;
        const auto type = static_cast<Vantor::AlgorithmType>(rows.int32(0, 0));
        const std::string stringType = rows.bytes(0, 1);
        const bool hasBlob = !rows.isNull(0, 2);
        const std::string bytes = hasBlob ? rows.bytes(0, 2) : std::string();
        hit = storedResult(assetId, algorithmKey, static_cast<int>(type), stringType, hasBlob ? bytes.data() : nullptr,
                           bytes.size());
    });
    return hit;
}

std::shared_ptr<Result> PgCache::query(const std::string& assetId, const std::string& algorithmKey) {
    std::lock_guard<std::mutex> lock(mutex_);
    return queryLocked(assetId, algorithmKey);
}

std::vector<std::shared_ptr<Result>> PgCache::query(const std::shared_ptr<Input>& input) {
    std::lock_guard<std::mutex> lock(mutex_);
    return queryEachResource(input, [this](const std::string& assetId, const std::string& algorithmKey) {
        return queryLocked(assetId, algorithmKey);
    });
}

void PgCache::save(const std::shared_ptr<Result>& result) {
    if (!result) return;
    save(std::vector<std::shared_ptr<Result>>{result});
}

void PgCache::save(const std::vector<std::shared_ptr<Result>>& results) {
    std::lock_guard<std::mutex> lock(mutex_);
    connection_.transact([&] { saveRows(connection_, results); });
}

void PgCache::deleteEach(const std::string& statement, const std::vector<std::string>& values) {
    std::lock_guard<std::mutex> lock(mutex_);
    connection_.transact([&] {
        for (const auto& value : values) connection_.execute(statement, {PgParam::text(value)});
    });
}

void PgCache::clear(const std::vector<std::string>& assetIds) {
    deleteEach("vqfe_clear_asset", assetIds);
    std::lock_guard<std::mutex> lock(mutex_);
    connection_.transact([&] {
        PgRunner sql(connection_);
        for (const char* table : {"vqfe_faces", "vqfe_labels", "vqfe_images", "vqfe_paths"}) {
            for (const auto& asset : assetIds) {
                sql.run("DELETE FROM " + std::string(table) + " WHERE asset_id = ?1", {SqlValue::text(asset)});
            }
        }
    });
}

void PgCache::clearTypes(const std::vector<Vantor::AlgorithmType>& types) {
    std::vector<std::string> numbers;
    for (auto type : types) numbers.push_back(std::to_string(static_cast<int>(type)));
    deleteEach("vqfe_clear_type", numbers);
}

void PgCache::clearTypes(const std::vector<std::string>& types) { deleteEach("vqfe_clear_name", types); }

void PgCache::clearAll() {
    std::lock_guard<std::mutex> lock(mutex_);
    connection_.transact([&] {
        for (const char* table : {"vqfe_results", "vqfe_faces", "vqfe_labels", "vqfe_images", "vqfe_paths"}) {
            connection_.command("DELETE FROM " + std::string(table));
        }
    });
}

long long PgCache::count() {
    std::lock_guard<std::mutex> lock(mutex_);
    long long rows = 0;
    connection_.run([&] { rows = connection_.execute("vqfe_count").int64(0, 0); });
    return rows;
}

void PgCache::saveIndexed(const std::vector<std::shared_ptr<Result>>& results, const ImageRecord& image) {
    std::lock_guard<std::mutex> lock(mutex_);
    connection_.transact([&] { saveRows(connection_, results, &image); });
}

bool PgCache::needsReindex() {
    return readIndex(connection_, mutex_, [](SqlRunner& sql) { return indexIncomplete(sql); });
}

long long PgCache::reindex(const std::map<std::string, ImageRecord>& known) {
    std::lock_guard<std::mutex> lock(mutex_);
    long long images = 0;
    connection_.transact([&] {
        PgRunner sql(connection_);
        images = reindexFromBlobs(sql, "vqfe_results", known);
    });
    return images;
}

IndexSnapshot PgCache::snapshot(bool withDescriptors) {
    std::lock_guard<std::mutex> lock(mutex_);
    IndexSnapshot snapshot;
    connection_.transact([&] {
        // One view of the whole index while workers go on writing.
        connection_.command("SET TRANSACTION ISOLATION LEVEL REPEATABLE READ, READ ONLY");
        PgRunner sql(connection_);
        snapshot = readIndex(sql, withDescriptors);
    });
    return snapshot;
}

std::vector<long long> PgCache::assignPersons(const PersonAssignment& assignment) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<long long> ids;
    connection_.transact([&] {
        PgRunner sql(connection_);
        ids = writeAssignment(sql, assignment);
    });
    return ids;
}

void PgCache::namePerson(long long id, const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex_);
    connection_.transact([&] {
        PgRunner sql(connection_);
        renamePerson(sql, id, name);
    });
}

void PgCache::mergePersons(long long into, long long from) {
    std::lock_guard<std::mutex> lock(mutex_);
    connection_.transact([&] {
        PgRunner sql(connection_);
        mergePersonRows(sql, into, from);
    });
}

long long PgCache::personNamed(const std::string& name) {
    return readIndex(connection_, mutex_, [&](SqlRunner& sql) { return findPerson(sql, name); });
}

std::vector<SearchHit> PgCache::search(const SearchQuery& query) {
    return readIndex(connection_, mutex_, [&](SqlRunner& sql) { return searchIndex(sql, query); });
}

std::vector<LabelCount> PgCache::labelCounts(float minScore) {
    return readIndex(connection_, mutex_, [&](SqlRunner& sql) { return countLabels(sql, minScore); });
}

}  // namespace VQFeature
