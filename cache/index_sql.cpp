#include "cache/index_sql.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <cstring>
#include <set>
#include <stdexcept>

#include "cache/index_rows.h"
#include "cache/stored_result.h"

namespace VQFeature {
namespace {

// Searches match label names in any case through this index (the expression must read
// lower(name) to be used); name itself is in it so that both databases answer from the
// index alone. Stores written before it existed get it when opened.
const char* const kLabelsByLowerName =
    "CREATE INDEX IF NOT EXISTS vqfe_labels_by_lower_name ON vqfe_labels (lower(name), asset_id, score, name)";

// Column types written once for both databases: {int}, {real}, {blob}, {serial}.
const char* const kSchema[] = {
    "CREATE TABLE IF NOT EXISTS vqfe_images ("
    " asset_id text PRIMARY KEY,"
    " path text NOT NULL DEFAULT '',"
    " bytes {int} NOT NULL DEFAULT 0,"
    " width {int} NOT NULL DEFAULT 0,"
    " height {int} NOT NULL DEFAULT 0,"
    " analysed_at {int} NOT NULL DEFAULT 0,"
    " hash {int},"
    " signature {blob},"
    " face_count {int} NOT NULL DEFAULT -1)",
    "CREATE TABLE IF NOT EXISTS vqfe_faces ("
    " asset_id text NOT NULL,"
    " face_index {int} NOT NULL,"
    " x {real} NOT NULL, y {real} NOT NULL, w {real} NOT NULL, h {real} NOT NULL,"
    " descriptor {blob},"
    " person {int},"
    " PRIMARY KEY (asset_id, face_index))",
    "CREATE INDEX IF NOT EXISTS vqfe_faces_by_person ON vqfe_faces (person)",
    "CREATE TABLE IF NOT EXISTS vqfe_labels ("
    " asset_id text NOT NULL,"
    " source text NOT NULL,"
    " name text NOT NULL,"
    " score {real} NOT NULL,"
    " PRIMARY KEY (asset_id, source, name))",
    "CREATE INDEX IF NOT EXISTS vqfe_labels_by_name ON vqfe_labels (name, asset_id, score)",
    kLabelsByLowerName,
    "CREATE TABLE IF NOT EXISTS vqfe_persons (id {serial} PRIMARY KEY, name text UNIQUE)",
    // Every path an image was seen at: byte-identical copies share one asset id.
    "CREATE TABLE IF NOT EXISTS vqfe_paths (path text PRIMARY KEY, asset_id text NOT NULL)",
    "CREATE INDEX IF NOT EXISTS vqfe_paths_by_asset ON vqfe_paths (asset_id)",
};

std::string typed(std::string sql, bool postgres) {
    const std::pair<const char*, const char*> types[] = {
        {"{int}", postgres ? "bigint" : "INTEGER"},
        {"{real}", postgres ? "float8" : "REAL"},
        {"{blob}", postgres ? "bytea" : "BLOB"},
        {"{serial}", postgres ? "bigserial" : "INTEGER"},
    };
    for (const auto& [token, type] : types) {
        for (size_t at = sql.find(token); at != std::string::npos; at = sql.find(token)) {
            sql.replace(at, std::strlen(token), type);
        }
    }
    // SQLite reuses the highest id after a delete without AUTOINCREMENT; ids must stay.
    if (!postgres) {
        const std::string key = "INTEGER PRIMARY KEY";
        if (auto at = sql.find("id INTEGER PRIMARY KEY"); at != std::string::npos) {
            sql.insert(at + 3 + key.size(), " AUTOINCREMENT");
        }
    }
    return sql;
}

long long now() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// The hash's 64 bits in a signed column.
long long signedBits(uint64_t hash) {
    long long bits;
    std::memcpy(&bits, &hash, sizeof bits);
    return bits;
}
uint64_t unsignedBits(long long bits) {
    uint64_t hash;
    std::memcpy(&hash, &bits, sizeof hash);
    return hash;
}

bool personExists(SqlRunner& sql, long long id) {
    return !sql.run("SELECT id FROM vqfe_persons WHERE id = ?1", {SqlValue::of(id)}).empty();
}

void setStoreValue(SqlRunner& sql, const std::string& key, const std::string& value) {
    sql.run("INSERT INTO vqfe_store (key, value) VALUES (?1, ?2) ON CONFLICT (key) DO UPDATE SET value = excluded.value",
            {SqlValue::text(key), SqlValue::text(value)});
}

}  // namespace

std::optional<int> recordedFormat(SqlRunner& sql) {
    const char* exists = sql.postgres()
                             ? "SELECT 1 FROM information_schema.tables WHERE table_schema = current_schema()"
                               " AND table_name = 'vqfe_store'"
                             : "SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'vqfe_store'";
    if (sql.run(exists).empty()) return std::nullopt;
    auto rows = sql.run("SELECT value FROM vqfe_store WHERE key = 'format'");
    if (rows.empty()) return 0;
    try {
        return std::stoi(rows[0][0].bytes);
    } catch (const std::exception&) {
        return 0;
    }
}

void checkFormat(SqlRunner& sql, const std::string& store) {
    const auto format = recordedFormat(sql);
    if (format && *format != kStoreFormat) {
        throw std::runtime_error("result store " + store + ": written by another version (store format " +
                                 std::to_string(*format) + ", this program reads format " +
                                 std::to_string(kStoreFormat) + "); nothing was changed");
    }
}

void createIndexTables(SqlRunner& sql, const std::string& resultsTable) {
    if (recordedFormat(sql)) {
        // Looked up first: CREATE INDEX IF NOT EXISTS would lock the table on every open.
        const char* exists = sql.postgres() ? "SELECT 1 FROM pg_indexes WHERE schemaname = current_schema()"
                                              " AND indexname = 'vqfe_labels_by_lower_name'"
                                            : "SELECT 1 FROM sqlite_master WHERE type = 'index'"
                                              " AND name = 'vqfe_labels_by_lower_name'";
        if (sql.run(exists).empty()) sql.run(kLabelsByLowerName);
        return;
    }
    sql.run("CREATE TABLE IF NOT EXISTS vqfe_store (key text PRIMARY KEY, value text NOT NULL)");
    for (const char* statement : kSchema) sql.run(typed(statement, sql.postgres()));
    const bool hadResults = !sql.run("SELECT 1 FROM " + resultsTable + " LIMIT 1").empty();
    setStoreValue(sql, "format", std::to_string(kStoreFormat));
    setStoreValue(sql, "indexed", hadResults ? "0" : "1");
}

void writeImageRecord(SqlRunner& sql, const ImageRecord& image) {
    sql.run("INSERT INTO vqfe_images (asset_id, analysed_at) VALUES (?1, ?2) ON CONFLICT (asset_id) DO NOTHING",
            {SqlValue::text(image.assetId), SqlValue::of(image.analysedAt ? image.analysedAt : now())});
    if (image.path.empty()) return;
    sql.run("INSERT INTO vqfe_paths (path, asset_id) VALUES (?1, ?2) ON CONFLICT (path) DO UPDATE SET"
            " asset_id = excluded.asset_id",
            {SqlValue::text(image.path), SqlValue::text(image.assetId)});
    sql.run("UPDATE vqfe_images SET path = ?2, bytes = ?3, width = ?4, height = ?5 WHERE asset_id = ?1",
            {SqlValue::text(image.assetId), SqlValue::text(image.path), SqlValue::of(image.bytes),
             SqlValue::of(static_cast<long long>(image.width)), SqlValue::of(static_cast<long long>(image.height))});
    if (image.analysedAt) {
        sql.run("UPDATE vqfe_images SET analysed_at = ?2 WHERE asset_id = ?1",
                {SqlValue::text(image.assetId), SqlValue::of(image.analysedAt)});
    }
}

void writeIndexRows(SqlRunner& sql, const Result& result) {
    const IndexRows rows = indexRowsOf(result);
    if (rows.empty()) return;
    const SqlValue asset = SqlValue::text(result.assetId);
    sql.run("INSERT INTO vqfe_images (asset_id, analysed_at) VALUES (?1, ?2) ON CONFLICT (asset_id) DO NOTHING",
            {asset, SqlValue::of(now())});
    if (rows.faces) {
        // A face keeps its person while its descriptor stays the same (a reindex, the
        // same result saved again); a changed face is clustered afresh.
        for (const IndexedFace& face : *rows.faces) {
            sql.run("INSERT INTO vqfe_faces (asset_id, face_index, x, y, w, h, descriptor, person)"
                    " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, NULL) ON CONFLICT (asset_id, face_index) DO UPDATE SET"
                    " x = excluded.x, y = excluded.y, w = excluded.w, h = excluded.h,"
                    " person = CASE WHEN vqfe_faces.descriptor = excluded.descriptor THEN vqfe_faces.person END,"
                    " descriptor = excluded.descriptor",
                    {asset, SqlValue::of(static_cast<long long>(face.index)), SqlValue::of(double(face.box[0])),
                     SqlValue::of(double(face.box[1])), SqlValue::of(double(face.box[2])),
                     SqlValue::of(double(face.box[3])), SqlValue::blob(floatBytes(face.descriptor))});
        }
        sql.run("DELETE FROM vqfe_faces WHERE asset_id = ?1 AND face_index >= ?2",
                {asset, SqlValue::of(static_cast<long long>(rows.faces->size()))});
    }
    if (rows.faceCount) {
        sql.run("UPDATE vqfe_images SET face_count = ?2 WHERE asset_id = ?1",
                {asset, SqlValue::of(static_cast<long long>(*rows.faceCount))});
    }
    if (rows.hash) {
        sql.run("UPDATE vqfe_images SET hash = ?2 WHERE asset_id = ?1", {asset, SqlValue::of(signedBits(*rows.hash))});
    }
    if (rows.signature) {
        sql.run("UPDATE vqfe_images SET signature = ?2 WHERE asset_id = ?1",
                {asset, SqlValue::blob(floatBytes(*rows.signature))});
    }
    if (rows.labels) {
        const SqlValue source = SqlValue::text(rows.labelSource);
        sql.run("DELETE FROM vqfe_labels WHERE asset_id = ?1 AND source = ?2", {asset, source});
        for (const IndexedLabel& label : *rows.labels) {
            sql.run("INSERT INTO vqfe_labels (asset_id, source, name, score) VALUES (?1, ?2, ?3, ?4)"
                    " ON CONFLICT (asset_id, source, name) DO UPDATE SET score ="
                    " CASE WHEN excluded.score > vqfe_labels.score THEN excluded.score ELSE vqfe_labels.score END",
                    {asset, source, SqlValue::text(label.name), SqlValue::of(double(label.score))});
        }
    }
}

bool indexIncomplete(SqlRunner& sql) {
    auto rows = sql.run("SELECT value FROM vqfe_store WHERE key = 'indexed'");
    return !rows.empty() && rows[0][0].bytes != "1";
}

long long reindexFromBlobs(SqlRunner& sql, const std::string& resultsTable,
                           const std::map<std::string, ImageRecord>& known) {
    // Only the kinds the index reads (masks and the like stay on disk), a chunk at a time
    // in key order, so a large store is never held in memory at once.
    const std::string select = "SELECT asset_id, algorithm_key, algorithm_type, algorithm_string_type, blob FROM " +
                               resultsTable +
                               " WHERE blob IS NOT NULL AND (algorithm_string_type <> ''"
                               " OR algorithm_type IN (4, 8, 25, 29, 58, 121, 130))"
                               " AND (asset_id > ?1 OR (asset_id = ?1 AND algorithm_key > ?2))"
                               " ORDER BY asset_id, algorithm_key LIMIT 500";
    std::set<std::string> assets;
    std::string lastAsset, lastKey;
    for (;;) {
        const auto rows = sql.run(select, {SqlValue::text(lastAsset), SqlValue::text(lastKey)});
        for (const SqlRow& row : rows) {
            auto result = storedResult(row[0].bytes, row[1].bytes, static_cast<int>(row[2].asInteger()),
                                       row[3].bytes, row[4].bytes.data(), row[4].bytes.size());
            writeIndexRows(sql, *result);
            assets.insert(row[0].bytes);
        }
        if (rows.empty()) break;
        lastAsset = rows.back()[0].bytes;
        lastKey = rows.back()[1].bytes;
    }
    for (const auto& [assetId, record] : known) {
        if (assets.count(assetId)) writeImageRecord(sql, record);
    }
    setStoreValue(sql, "indexed", "1");
    return static_cast<long long>(assets.size());
}

IndexSnapshot readIndex(SqlRunner& sql, bool withDescriptors) {
    IndexSnapshot snapshot;
    for (const SqlRow& row : sql.run("SELECT asset_id, path, bytes, width, height, analysed_at, hash, signature,"
                                     " face_count FROM vqfe_images ORDER BY asset_id")) {
        IndexedImage image;
        image.record = {row[0].bytes, row[1].bytes, row[2].asInteger(), static_cast<int>(row[3].asInteger()),
                        static_cast<int>(row[4].asInteger()), row[5].asInteger()};
        if (!row[6].isNull()) image.hash = unsignedBits(row[6].asInteger());
        if (!row[7].isNull()) image.signature = floatsOf(row[7].bytes);
        image.faces = static_cast<int>(row[8].asInteger());
        snapshot.images.push_back(std::move(image));
    }
    std::map<std::string, IndexedImage*> byAsset;
    for (IndexedImage& image : snapshot.images) byAsset[image.record.assetId] = &image;
    for (const SqlRow& row : sql.run("SELECT asset_id, path FROM vqfe_paths ORDER BY path")) {
        if (auto found = byAsset.find(row[0].bytes); found != byAsset.end()) found->second->paths.push_back(row[1].bytes);
    }
    const std::string faces = std::string("SELECT asset_id, face_index, x, y, w, h, person") +
                              (withDescriptors ? ", descriptor" : "") +
                              " FROM vqfe_faces ORDER BY asset_id, face_index";
    for (const SqlRow& row : sql.run(faces)) {
        IndexedFace face;
        face.assetId = row[0].bytes;
        face.index = static_cast<int>(row[1].asInteger());
        for (int i = 0; i < 4; ++i) face.box[i] = static_cast<float>(row[2 + i].asReal());
        face.person = row[6].isNull() ? 0 : row[6].asInteger();
        if (withDescriptors) face.descriptor = floatsOf(row[7].bytes);
        snapshot.faces.push_back(std::move(face));
    }
    for (const SqlRow& row :
         sql.run("SELECT asset_id, name, max(score) FROM vqfe_labels GROUP BY asset_id, name ORDER BY asset_id, name")) {
        snapshot.labels.push_back({row[0].bytes, row[1].bytes, static_cast<float>(row[2].asReal())});
    }
    for (const SqlRow& row : sql.run("SELECT id, name FROM vqfe_persons ORDER BY id")) {
        snapshot.persons.push_back({row[0].asInteger(), row[1].isNull() ? "" : row[1].bytes});
    }
    return snapshot;
}

std::vector<long long> writeAssignment(SqlRunner& sql, const PersonAssignment& assignment) {
    // Only faces still in no person: a run at the same time may have placed them.
    const char* join = "UPDATE vqfe_faces SET person = ?3 WHERE asset_id = ?1 AND face_index = ?2 AND person IS NULL";
    for (const auto& [face, person] : assignment.joins) {
        if (!personExists(sql, person)) continue;  // merged away meanwhile: clustered next time
        sql.run(join, {SqlValue::text(face.assetId), SqlValue::of(static_cast<long long>(face.index)),
                       SqlValue::of(person)});
    }
    std::vector<long long> ids;
    for (const auto& faces : assignment.newPersons) {
        const long long id = sql.run("INSERT INTO vqfe_persons DEFAULT VALUES RETURNING id")[0][0].asInteger();
        for (const FaceKey& face : faces) {
            sql.run(join, {SqlValue::text(face.assetId), SqlValue::of(static_cast<long long>(face.index)),
                           SqlValue::of(id)});
        }
        ids.push_back(id);
    }
    return ids;
}

void renamePerson(SqlRunner& sql, long long id, const std::string& name) {
    if (!personExists(sql, id)) throw UnknownPerson("no person " + std::to_string(id));
    auto owner = sql.run("SELECT id FROM vqfe_persons WHERE name = ?1", {SqlValue::text(name)});
    if (!owner.empty() && owner[0][0].asInteger() != id) {
        throw std::runtime_error("the name '" + name + "' is already person " +
                                 std::to_string(owner[0][0].asInteger()) + "'s");
    }
    sql.run("UPDATE vqfe_persons SET name = ?2 WHERE id = ?1", {SqlValue::of(id), SqlValue::text(name)});
}

void mergePersonRows(SqlRunner& sql, long long into, long long from) {
    for (long long id : {into, from}) {
        if (!personExists(sql, id)) throw UnknownPerson("no person " + std::to_string(id));
    }
    if (into == from) return;
    auto names = sql.run("SELECT name FROM vqfe_persons WHERE id = ?1", {SqlValue::of(from)});
    sql.run("UPDATE vqfe_faces SET person = ?1 WHERE person = ?2", {SqlValue::of(into), SqlValue::of(from)});
    sql.run("DELETE FROM vqfe_persons WHERE id = ?1", {SqlValue::of(from)});
    if (!names[0][0].isNull()) {
        sql.run("UPDATE vqfe_persons SET name = ?2 WHERE id = ?1 AND name IS NULL",
                {SqlValue::of(into), names[0][0]});
    }
}

// The name as written, else the one name that differs from it only in case ("grace" for
// "Grace"), as labels are matched; two such names ("Grace" and "GRACE") need the exact one.
long long findPerson(SqlRunner& sql, const std::string& name) {
    auto rows = sql.run("SELECT id FROM vqfe_persons WHERE name = ?1", {SqlValue::text(name)});
    if (rows.empty()) {
        rows = sql.run("SELECT id FROM vqfe_persons WHERE lower(name) = lower(?1)", {SqlValue::text(name)});
        if (rows.size() > 1) {
            throw UnknownPerson("no person named '" + name + "', and " + std::to_string(rows.size()) +
                                " persons are named so in another case: give the name as written");
        }
    }
    if (rows.empty()) throw UnknownPerson("no person named '" + name + "'");
    return rows[0][0].asInteger();
}

std::vector<SearchHit> searchIndex(SqlRunner& sql, const SearchQuery& query) {
    if (query.person != 0 && !personExists(sql, query.person)) {
        throw UnknownPerson("no person " + std::to_string(query.person));
    }
    std::vector<SqlValue> params;
    auto param = [&](SqlValue value) {
        params.push_back(std::move(value));
        return "?" + std::to_string(params.size());
    };
    // Each database lowers both sides alike, so stored and asked names meet in any case.
    // One name is an equality: SQLite then reads the index in asset order for the grouping.
    auto nameMatch = [&](const std::vector<std::string>& names) {
        if (names.size() == 1) return " = lower(" + param(SqlValue::text(names[0])) + ")";
        std::string list;
        for (const auto& name : names) list += (list.empty() ? "lower(" : ", lower(") + param(SqlValue::text(name)) + ")";
        return " IN (" + (list.empty() ? std::string("NULL") : list) + ")";
    };
    // The label's names in any case and its score floor, for a WHERE clause over vqfe_labels
    // (alias prefix), served by vqfe_labels_by_lower_name.
    auto labelMatch = [&](const std::vector<std::string>& names, const std::string& prefix) {
        return "lower(" + prefix + "name)" + nameMatch(names) + " AND " + prefix +
               "score >= " + param(SqlValue::of(double(query.minScore)));
    };
    // The rarest label drives the query through the label index (a bounded count tells
    // which); the others are looked up per image by its key.
    std::vector<std::vector<std::string>> labels = query.labels;
    if (labels.size() > 1) {
        std::vector<std::pair<long long, size_t>> counts;
        for (size_t i = 0; i < labels.size(); ++i) {
            params.clear();
            counts.emplace_back(sql.run("SELECT count(*) FROM (SELECT 1 FROM vqfe_labels WHERE " +
                                            labelMatch(labels[i], "") + " LIMIT 50000) rare",
                                        params)[0][0].asInteger(),
                                i);
        }
        std::sort(counts.begin(), counts.end());
        std::vector<std::vector<std::string>> ordered;
        for (const auto& [count, i] : counts) ordered.push_back(labels[i]);
        labels = std::move(ordered);
    }
    params.clear();
    std::string from = "vqfe_images i";
    std::string score = "0";
    std::string where = " WHERE 1 = 1";
    for (size_t i = 0; i < labels.size(); ++i) {
        if (i == 0) {
            from = "(SELECT asset_id, max(score) AS s FROM vqfe_labels WHERE " + labelMatch(labels[i], "") +
                   " GROUP BY asset_id) l0 JOIN vqfe_images i ON i.asset_id = l0.asset_id";
            score += " + l0.s";
            continue;
        }
        const std::string lookup = "FROM vqfe_labels x WHERE x.asset_id = i.asset_id AND " + labelMatch(labels[i], "x.");
        score += " + coalesce((SELECT max(x.score) " + lookup + "), 0)";
        where += " AND EXISTS (SELECT 1 " + lookup + ")";
    }
    std::string personOrder;
    if (query.person != 0) {
        from += " JOIN (SELECT asset_id, count(*) AS n FROM vqfe_faces WHERE person = " +
                param(SqlValue::of(query.person)) + " GROUP BY asset_id) pf ON pf.asset_id = i.asset_id";
        personOrder = "pf.n DESC, ";
    }
    if (query.minFaces > 0) where += " AND i.face_count >= " + param(SqlValue::of(static_cast<long long>(query.minFaces)));
    const std::string statement = "SELECT CASE WHEN i.path = '' THEN i.asset_id ELSE i.path END, " + score +
                                  " AS score FROM " + from + where + " ORDER BY score DESC, " + personOrder +
                                  "i.face_count DESC, i.path, i.asset_id";
    std::vector<SearchHit> hits;
    for (const SqlRow& row : sql.run(statement, params)) hits.push_back({row[0].bytes, row[1].asReal()});
    return hits;
}

std::vector<LabelCount> countLabels(SqlRunner& sql, float minScore) {
    std::vector<LabelCount> counts;
    for (const SqlRow& row : sql.run("SELECT name, count(DISTINCT asset_id) FROM vqfe_labels WHERE score >= ?1"
                                     " GROUP BY name ORDER BY name",
                                     {SqlValue::of(double(minScore))})) {
        counts.push_back({row[0].bytes, row[1].asInteger()});
    }
    return counts;
}

}  // namespace VQFeature
