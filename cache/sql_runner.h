// SqlRunner: the few things the index code needs of a database, so the index is written
// once for the SQLite and the PostgreSQL store. Statements use ?1, ?2, ... for parameters
// (the PostgreSQL runner turns them into $1, $2, ...).
#pragma once

#include <string>
#include <vector>

namespace VQFeature {

struct SqlValue {
    enum class Type { Null, Integer, Real, Text, Blob };
    Type type = Type::Null;
    long long integer = 0;
    double real = 0;
    std::string bytes;  // text or blob

    static SqlValue null() { return {}; }
    static SqlValue of(long long value) { return {Type::Integer, value, 0, {}}; }
    static SqlValue of(double value) { return {Type::Real, 0, value, {}}; }
    static SqlValue text(std::string value) { return {Type::Text, 0, 0, std::move(value)}; }
    static SqlValue blob(std::string value) { return {Type::Blob, 0, 0, std::move(value)}; }

    bool isNull() const { return type == Type::Null; }
    long long asInteger() const { return type == Type::Real ? static_cast<long long>(real) : integer; }
    double asReal() const { return type == Type::Integer ? static_cast<double>(integer) : real; }
};

using SqlRow = std::vector<SqlValue>;

class SqlRunner {
public:
    virtual ~SqlRunner() = default;
    // Runs one statement and returns its rows (none for statements without).
    virtual std::vector<SqlRow> run(const std::string& sql, const std::vector<SqlValue>& params = {}) = 0;
    virtual bool postgres() const = 0;
};

}  // namespace VQFeature
