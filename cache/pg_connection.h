// PgConnection: one libpq connection to a PostgreSQL server, with the statements its
// user prepared, and a bounded reconnect.
//
// Every unit of work goes through run() or transact(): when the server goes away under
// it (restart, failover, dropped socket), the connection is opened again, the prepared
// statements are prepared again and the whole unit runs again, a bounded number of times
// with growing pauses (about 15 s in all); after that the error goes to the caller.
// Units must therefore be safe to run twice (upserts, updates guarded by a token).
// Errors are std::runtime_error whose text starts with "result store <uri>: " (the
// password, if any, masked). Not thread-safe: one thread at a time per object.
#pragma once

#include <libpq-fe.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace VQFeature {

// One statement parameter: null, text, or bytes sent in binary form.
struct PgParam {
    std::optional<std::string> value;
    bool binary = false;

    static PgParam text(std::string text) { return {std::move(text), false}; }
    static PgParam number(long long value) { return {std::to_string(value), false}; }
    // A null data pointer is SQL NULL; length 0 with data is an empty value.
    static PgParam bytes(const void* data, size_t length);
    static PgParam null() { return {}; }
};

// The rows of one statement, read in binary form. Columns are read by index.
class PgRows {
public:
    explicit PgRows(PGresult* result) : result_(result, PQclear) {}
    int size() const { return PQntuples(result_.get()); }
    int columns() const { return PQnfields(result_.get()); }
    bool isNull(int row, int column) const { return PQgetisnull(result_.get(), row, column) != 0; }
    std::string bytes(int row, int column) const;  // text or bytea
    int32_t int32(int row, int column) const;
    int64_t int64(int row, int column) const;
    double float8(int row, int column) const;
    // The column's type (its PostgreSQL type oid: 20 int8, 23 int4, 701 float8, ...).
    unsigned columnType(int column) const { return PQftype(result_.get(), column); }
    // Rows changed by an INSERT, UPDATE or DELETE.
    long long affected() const;

private:
    std::shared_ptr<PGresult> result_;
};

class PgConnection {
public:
    // Connects (connect_timeout 10 s and idle_in_transaction_session_timeout 60 s unless
    // the URI says otherwise). Throws when the server cannot be reached.
    explicit PgConnection(const std::string& uri);
    PgConnection(const PgConnection&) = delete;
    PgConnection& operator=(const PgConnection&) = delete;
    ~PgConnection();

    // Prepares sql under name now and after every reconnect.
    void prepare(const std::string& name, const std::string& sql);
    PgRows execute(const std::string& name, const std::vector<PgParam>& params = {});
    // A statement without parameters, not prepared (schema set-up, BEGIN, ...).
    PgRows command(const std::string& sql);
    // A statement with parameters, not prepared.
    PgRows query(const std::string& sql, const std::vector<PgParam>& params);

    // Runs unit, reconnecting and running it again after a lost connection.
    void run(const std::function<void()>& unit);
    // Runs unit inside BEGIN ... COMMIT, again as a whole after a lost connection or a
    // serialisation failure; any other error rolls back and goes to the caller.
    void transact(const std::function<void()>& unit);

    // The URI with its password masked, as errors show it.
    const std::string& name() const { return name_; }
    static std::string masked(const std::string& uri);

private:
    void connect();
    void prepareAll();
    [[noreturn]] void fail(const PGresult* result);
    PgRows check(PGresult* result);

    std::string uri_;
    std::string name_;
    PGconn* conn_ = nullptr;
    std::vector<std::pair<std::string, std::string>> statements_;
};

}  // namespace VQFeature
