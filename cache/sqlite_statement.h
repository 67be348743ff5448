// One prepared SQLite statement, finalised when it goes out of scope, and SqlRunner over
// a connection. Errors are std::runtime_error naming the store file.
#pragma once

#include <sqlite3.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "cache/sql_runner.h"

namespace VQFeature {

inline std::runtime_error storeError(sqlite3* db, const std::string& reason) {
    const char* file = db ? sqlite3_db_filename(db, "main") : nullptr;
    return std::runtime_error("result store " + std::string(file ? file : "") + ": " + reason);
}

// One prepared statement, finalised when it goes out of scope.
class SqliteStatement {
public:
    SqliteStatement(sqlite3* db, const char* sql) : db_(db) {
        if (sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK) {
            throw storeError(db, sqlite3_errmsg(db));
        }
    }
    ~SqliteStatement() { sqlite3_finalize(stmt_); }
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

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

class SqliteRunner : public SqlRunner {
public:
    explicit SqliteRunner(sqlite3* db) : db_(db) {}
    std::vector<SqlRow> run(const std::string& sql, const std::vector<SqlValue>& params = {}) override;
    bool postgres() const override { return false; }

private:
    sqlite3* db_;
};

}  // namespace VQFeature
