#include "cache/sqlite_cache.h"

#include <sqlite3.h>

#include <stdexcept>

#include "cache/index_sql.h"
#include "cache/query_each_resource.h"
#include "cache/sqlite_statement.h"
#include "cache/stored_result.h"

namespace VQFeature {

SqliteCache::SqliteCache(const std::string& path) : path_(path) {
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
    if (sqlite3_open_v2(path.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
        const std::string reason = db_ ? sqlite3_errmsg(db_) : "out of memory";
        sqlite3_close(db_);
        throw std::runtime_error("result store " + path + ": " + reason);
    }
    sqlite3_busy_timeout(db_, 10000);
    try {
        // Reads first: a foreign, damaged or newer file is told apart before anything is
        // written to it.
        SqliteRunner sql(db_);
        const long long tables = sql.run("SELECT count(*) FROM sqlite_master WHERE type = 'table'")[0][0].asInteger();
        const bool ours = !sql.run("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'results'").empty();
        if (tables > 0 && !ours) {
            throw storeError(db_, "not a result store (it holds tables of another program); nothing was changed");
        }
        if (ours) {
            SqliteStatement check(db_,
                                  "SELECT asset_id, algorithm_key, algorithm_type, algorithm_string_type, blob"
                                  " FROM results LIMIT 0");
            check.step();
        }
        checkFormat(sql, path);
        execute("PRAGMA journal_mode=WAL");
        execute("PRAGMA synchronous=NORMAL");
        execute("BEGIN IMMEDIATE");
        try {
            execute(
                "CREATE TABLE IF NOT EXISTS results ("
                " asset_id TEXT NOT NULL,"
                " algorithm_key TEXT NOT NULL,"
                " algorithm_type INTEGER NOT NULL,"
                " algorithm_string_type TEXT NOT NULL,"
                " blob BLOB,"
                " PRIMARY KEY (asset_id, algorithm_key)) WITHOUT ROWID");
            execute("CREATE INDEX IF NOT EXISTS results_by_type ON results(algorithm_type)");
            execute("CREATE INDEX IF NOT EXISTS results_by_name ON results(algorithm_string_type)");
            checkFormat(sql, path);  // another process may have been first
            createIndexTables(sql, "results");
            execute("COMMIT");
        } catch (...) {
            sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
            throw;
        }
    } catch (const std::runtime_error&) {
        sqlite3_close(db_);
        db_ = nullptr;
        throw;
    }
}

SqliteCache::~SqliteCache() { sqlite3_close(db_); }

void SqliteCache::execute(const char* sql) {
    char* message = nullptr;
    if (sqlite3_exec(db_, sql, nullptr, nullptr, &message) != SQLITE_OK) {
        std::string reason = message ? message : sqlite3_errmsg(db_);
        sqlite3_free(message);
        throw storeError(db_, reason);
    }
}

std::shared_ptr<Result> SqliteCache::queryLocked(const std::string& assetId, const std::string& algorithmKey) {
    SqliteStatement select(db_,
                     "SELECT algorithm_type, algorithm_string_type, blob FROM results"
                     " WHERE asset_id = ?1 AND algorithm_key = ?2");
    select.bind(1, assetId);
    select.bind(2, algorithmKey);
    if (!select.step()) return nullptr;
    const auto type = static_cast<Vantor::AlgorithmType>(sqlite3_column_int(select.get(), 0));
    const std::string stringType = reinterpret_cast<const char*>(sqlite3_column_text(select.get(), 1));
    // An empty message packs to zero bytes; SQLite hands those back as a null pointer,
    // so only a NULL column means "no blob".
    const bool hasBlob = sqlite3_column_type(select.get(), 2) != SQLITE_NULL;
    const void* bytes = sqlite3_column_blob(select.get(), 2);
    const int length = sqlite3_column_bytes(select.get(), 2);
    static const char kEmpty = 0;
    return storedResult(assetId, algorithmKey, static_cast<int>(type), stringType,
                        hasBlob ? (bytes ? bytes : &kEmpty) : nullptr, hasBlob ? length : 0);
}

std::shared_ptr<Result> SqliteCache::query(const std::string& assetId, const std::string& algorithmKey) {
    std::lock_guard<std::mutex> lock(mutex_);
    return queryLocked(assetId, algorithmKey);
}

std::vector<std::shared_ptr<Result>> SqliteCache::query(const std::shared_ptr<Input>& input) {
    std::lock_guard<std::mutex> lock(mutex_);
    return queryEachResource(input, [this](const std::string& assetId, const std::string& algorithmKey) {
        return queryLocked(assetId, algorithmKey);
    });
}

void SqliteCache::saveLocked(const Result& result) {
    SqliteStatement insert(db_,
                     "INSERT OR REPLACE INTO results"
                     " (asset_id, algorithm_key, algorithm_type, algorithm_string_type, blob)"
                     " VALUES (?1, ?2, ?3, ?4, ?5)");
    insert.bind(1, result.assetId);
    insert.bind(2, result.algorithmKey);
    insert.bind(3, static_cast<long long>(result.algorithmType));
    insert.bind(4, result.algorithmStringType);
    const std::string_view blob = blobBytes(result);
    insert.bindBlob(5, blob.data(), blob.size());
    insert.step();
    SqliteRunner sql(db_);
    writeIndexRows(sql, result);
}

void SqliteCache::save(const std::shared_ptr<Result>& result) {
    if (!result) return;
    save(std::vector<std::shared_ptr<Result>>{result});
}

void SqliteCache::save(const std::vector<std::shared_ptr<Result>>& results) {
    transact([&] {
        for (const auto& result : results) {
            if (result) saveLocked(*result);
        }
    });
}

void SqliteCache::transact(const std::function<void()>& unit) {
    std::lock_guard<std::mutex> lock(mutex_);
    execute("BEGIN IMMEDIATE");
    try {
        unit();
        execute("COMMIT");
    } catch (...) {
        sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
}

void SqliteCache::deleteWhere(std::initializer_list<const char*> statements, const std::vector<std::string>& values) {
    transact([&] {
        for (const char* sql : statements) {
            SqliteStatement remove(db_, sql);
            for (const auto& value : values) {
                remove.bind(1, value);
                remove.step();
                sqlite3_reset(remove.get());
            }
        }
    });
}

void SqliteCache::clear(const std::vector<std::string>& assetIds) {
    deleteWhere({"DELETE FROM results WHERE asset_id = ?1", "DELETE FROM vqfe_faces WHERE asset_id = ?1",
                 "DELETE FROM vqfe_labels WHERE asset_id = ?1", "DELETE FROM vqfe_images WHERE asset_id = ?1",
                 "DELETE FROM vqfe_paths WHERE asset_id = ?1"},
                assetIds);
}

void SqliteCache::clearTypes(const std::vector<Vantor::AlgorithmType>& types) {
    std::vector<std::string> numbers;
    for (auto type : types) numbers.push_back(std::to_string(static_cast<int>(type)));
    deleteWhere({"DELETE FROM results WHERE algorithm_type = CAST(?1 AS INTEGER) AND algorithm_string_type = ''"},
                numbers);
}

void SqliteCache::clearTypes(const std::vector<std::string>& types) {
    deleteWhere({"DELETE FROM results WHERE algorithm_string_type = ?1"
        " OR (algorithm_string_type = '' AND CAST(algorithm_type AS TEXT) = ?1)"},
        types);
}

void SqliteCache::clearAll() {
    transact([&] {
        for (const char* table : {"results", "vqfe_faces", "vqfe_labels", "vqfe_images", "vqfe_paths"}) {
            execute(("DELETE FROM " + std::string(table)).c_str());
        }
    });
}

long long SqliteCache::count() {
    std::lock_guard<std::mutex> lock(mutex_);
    SqliteStatement select(db_, "SELECT count(*) FROM results");
    select.step();
    return sqlite3_column_int64(select.get(), 0);
}

std::vector<SqlRow> SqliteRunner::run(const std::string& sql, const std::vector<SqlValue>& params) {
    SqliteStatement statement(db_, sql.c_str());
    for (size_t i = 0; i < params.size(); ++i) {
        const int index = static_cast<int>(i + 1);
        const SqlValue& value = params[i];
        switch (value.type) {
        case SqlValue::Type::Null: sqlite3_bind_null(statement.get(), index); break;
        case SqlValue::Type::Integer: statement.bind(index, value.integer); break;
        case SqlValue::Type::Real: sqlite3_bind_double(statement.get(), index, value.real); break;
        case SqlValue::Type::Text: statement.bind(index, value.bytes); break;
        case SqlValue::Type::Blob: statement.bindBlob(index, value.bytes.data(), value.bytes.size()); break;
        }
    }
    std::vector<SqlRow> rows;
    while (statement.step()) {
        SqlRow row(sqlite3_column_count(statement.get()));
        for (int c = 0; c < static_cast<int>(row.size()); ++c) {
            sqlite3_stmt* s = statement.get();
            switch (sqlite3_column_type(s, c)) {
            case SQLITE_NULL: break;
            case SQLITE_INTEGER: row[c] = SqlValue::of(static_cast<long long>(sqlite3_column_int64(s, c))); break;
            case SQLITE_FLOAT: row[c] = SqlValue::of(sqlite3_column_double(s, c)); break;
            default: {
                const void* bytes = sqlite3_column_blob(s, c);
                const int length = sqlite3_column_bytes(s, c);
                row[c] = SqlValue::blob(bytes ? std::string(static_cast<const char*>(bytes), length) : std::string());
            }
            }
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

void SqliteCache::saveIndexed(const std::vector<std::shared_ptr<Result>>& results, const ImageRecord& image) {
    transact([&] {
        for (const auto& result : results) {
            if (result) saveLocked(*result);
        }
        SqliteRunner sql(db_);
        writeImageRecord(sql, image);
    });
}

bool SqliteCache::needsReindex() {
    std::lock_guard<std::mutex> lock(mutex_);
    SqliteRunner sql(db_);
    return indexIncomplete(sql);
}

long long SqliteCache::reindex(const std::map<std::string, ImageRecord>& known) {
    long long images = 0;
    transact([&] {
        SqliteRunner sql(db_);
        images = reindexFromBlobs(sql, "results", known);
    });
    return images;
}

IndexSnapshot SqliteCache::snapshot(bool withDescriptors) {
    // A read transaction: under write-ahead logging, one consistent view while writers go on.
    std::lock_guard<std::mutex> lock(mutex_);
    execute("BEGIN");
    try {
        SqliteRunner sql(db_);
        IndexSnapshot snapshot = readIndex(sql, withDescriptors);
        execute("COMMIT");
        return snapshot;
    } catch (...) {
        sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
}

std::vector<long long> SqliteCache::assignPersons(const PersonAssignment& assignment) {
    std::vector<long long> ids;
    transact([&] {
        SqliteRunner sql(db_);
        ids = writeAssignment(sql, assignment);
    });
    return ids;
}

void SqliteCache::namePerson(long long id, const std::string& name) {
    transact([&] {
        SqliteRunner sql(db_);
        renamePerson(sql, id, name);
    });
}

void SqliteCache::mergePersons(long long into, long long from) {
    transact([&] {
        SqliteRunner sql(db_);
        mergePersonRows(sql, into, from);
    });
}

long long SqliteCache::personNamed(const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex_);
    SqliteRunner sql(db_);
    return findPerson(sql, name);
}

std::vector<SearchHit> SqliteCache::search(const SearchQuery& query) {
    std::lock_guard<std::mutex> lock(mutex_);
    SqliteRunner sql(db_);
    return searchIndex(sql, query);
}

std::vector<LabelCount> SqliteCache::labelCounts(float minScore) {
    std::lock_guard<std::mutex> lock(mutex_);
    SqliteRunner sql(db_);
    return countLabels(sql, minScore);
}

}  // namespace VQFeature
