#include "cache/sqlite_cache.h"

#include <sqlite3.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "cache/query_each_resource.h"

namespace VQFeature {
namespace {

std::runtime_error storeError(sqlite3* db, const std::string& reason) {
    const char* file = db ? sqlite3_db_filename(db, "main") : nullptr;
    return std::runtime_error("result store " + std::string(file ? file : "") + ": " + reason);
}

}  // namespace

// One prepared statement, finalised when it goes out of scope.
class SqliteCache::Statement {
public:
    Statement(sqlite3* db, const char* sql) : db_(db) {
        if (sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK) {
            throw storeError(db, sqlite3_errmsg(db));
        }
    }
    ~Statement() { sqlite3_finalize(stmt_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    void bind(int index, const std::string& text) {
        sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    }
    void bind(int index, long long value) { sqlite3_bind_int64(stmt_, index, value); }
    void bindBlob(int index, const void* data, unsigned long length) {
        if (data == nullptr) sqlite3_bind_null(stmt_, index);
        else if (length == 0) sqlite3_bind_zeroblob(stmt_, index, 0);
        else sqlite3_bind_blob64(stmt_, index, data, length, SQLITE_TRANSIENT);
    }
    // True while a row is available; throws on errors.
    bool step() {
        const int rc = sqlite3_step(stmt_);
        if (rc == SQLITE_ROW) return true;
        if (rc == SQLITE_DONE) return false;
        throw storeError(db_, sqlite3_errmsg(db_));
    }
    sqlite3_stmt* get() const { return stmt_; }

private:
    sqlite3* db_;
    sqlite3_stmt* stmt_ = nullptr;
};

SqliteCache::SqliteCache(const std::string& path) : path_(path) {
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
    if (sqlite3_open_v2(path.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
        const std::string reason = db_ ? sqlite3_errmsg(db_) : "out of memory";
        sqlite3_close(db_);
        throw std::runtime_error("result store " + path + ": " + reason);
    }
    sqlite3_busy_timeout(db_, 10000);
    try {
        // The first read of the header tells a foreign or damaged file apart before
        // anything is written to it.
        execute("SELECT count(*) FROM sqlite_master");
        execute("PRAGMA journal_mode=WAL");
        execute("PRAGMA synchronous=NORMAL");
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
        Statement check(db_, "SELECT asset_id, algorithm_key, algorithm_type, algorithm_string_type, blob FROM results LIMIT 0");
        check.step();
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
    Statement select(db_,
                     "SELECT algorithm_type, algorithm_string_type, blob FROM results"
                     " WHERE asset_id = ?1 AND algorithm_key = ?2");
    select.bind(1, assetId);
    select.bind(2, algorithmKey);
    if (!select.step()) return nullptr;
    const auto type = static_cast<Vantor::AlgorithmType>(sqlite3_column_int(select.get(), 0));
    const std::string stringType = reinterpret_cast<const char*>(sqlite3_column_text(select.get(), 1));
    // An empty message packs to zero bytes; SQLite hands those back as a null pointer,
    // so only a NULL column means "no blob".
    void* blob = nullptr;
    int length = 0;
    if (sqlite3_column_type(select.get(), 2) != SQLITE_NULL) {
        const void* bytes = sqlite3_column_blob(select.get(), 2);
        length = sqlite3_column_bytes(select.get(), 2);
        blob = std::malloc(length > 0 ? length : 1);
        if (length > 0) std::memcpy(blob, bytes, length);
    }
    if (!stringType.empty()) return std::make_shared<Result>(assetId, algorithmKey, stringType, blob, length);
    return std::make_shared<Result>(assetId, algorithmKey, type, blob, length);
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
    Statement insert(db_,
                     "INSERT OR REPLACE INTO results"
                     " (asset_id, algorithm_key, algorithm_type, algorithm_string_type, blob)"
                     " VALUES (?1, ?2, ?3, ?4, ?5)");
    insert.bind(1, result.assetId);
    insert.bind(2, result.algorithmKey);
    insert.bind(3, static_cast<long long>(result.algorithmType));
    insert.bind(4, result.algorithmStringType);
    insert.bindBlob(5, result.result, result.resultLength);
    insert.step();
}

void SqliteCache::save(const std::shared_ptr<Result>& result) {
    if (!result) return;
    std::lock_guard<std::mutex> lock(mutex_);
    saveLocked(*result);
}

void SqliteCache::save(const std::vector<std::shared_ptr<Result>>& results) {
    std::lock_guard<std::mutex> lock(mutex_);
    execute("BEGIN IMMEDIATE");
    try {
        for (const auto& result : results) {
            if (result) saveLocked(*result);
        }
        execute("COMMIT");
    } catch (...) {
        sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
}

void SqliteCache::deleteWhere(const char* sql, const std::vector<std::string>& values) {
    std::lock_guard<std::mutex> lock(mutex_);
    execute("BEGIN IMMEDIATE");
    try {
        Statement remove(db_, sql);
        for (const auto& value : values) {
            remove.bind(1, value);
            remove.step();
            sqlite3_reset(remove.get());
        }
        execute("COMMIT");
    } catch (...) {
        sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
}

void SqliteCache::clear(const std::vector<std::string>& assetIds) {
    deleteWhere("DELETE FROM results WHERE asset_id = ?1", assetIds);
}

void SqliteCache::clearTypes(const std::vector<Vantor::AlgorithmType>& types) {
    std::vector<std::string> numbers;
    for (auto type : types) numbers.push_back(std::to_string(static_cast<int>(type)));
    deleteWhere("DELETE FROM results WHERE algorithm_type = CAST(?1 AS INTEGER) AND algorithm_string_type = ''",
                numbers);
}

void SqliteCache::clearTypes(const std::vector<std::string>& types) {
    deleteWhere(
        "DELETE FROM results WHERE algorithm_string_type = ?1"
        " OR (algorithm_string_type = '' AND CAST(algorithm_type AS TEXT) = ?1)",
        types);
}

void SqliteCache::clearAll() {
    std::lock_guard<std::mutex> lock(mutex_);
    execute("DELETE FROM results");
}

long long SqliteCache::count() {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement select(db_, "SELECT count(*) FROM results");
    select.step();
    return sqlite3_column_int64(select.get(), 0);
}

}  // namespace VQFeature
