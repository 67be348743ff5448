#include "cache/pg_runner.h"

#include <cstdio>
#include <cstring>

namespace VQFeature {
namespace {

// PostgreSQL type oids of the columns the index reads.
constexpr unsigned kBool = 16, kBytea = 17, kInt8 = 20, kInt2 = 21, kInt4 = 23, kFloat4 = 700, kFloat8 = 701;

PgParam paramOf(const SqlValue& value) {
    switch (value.type) {
    case SqlValue::Type::Null: return PgParam::null();
    case SqlValue::Type::Integer: return PgParam::number(value.integer);
    case SqlValue::Type::Real: {
        char text[32];
        std::snprintf(text, sizeof text, "%.17g", value.real);
        return PgParam::text(text);
    }
    case SqlValue::Type::Text: return PgParam::text(value.bytes);
    case SqlValue::Type::Blob: return PgParam::bytes(value.bytes.data(), value.bytes.size());
    }
    return PgParam::null();
}

}  // namespace

std::vector<SqlRow> PgRunner::run(const std::string& sql, const std::vector<SqlValue>& params) {
    std::string statement = sql;
    for (char& c : statement) {
        if (c == '?') c = '$';
    }
    std::vector<PgParam> values;
    for (const SqlValue& value : params) values.push_back(paramOf(value));
    PgRows rows = connection_.query(statement, values);
    std::vector<SqlRow> out;
    const int columns = rows.size() > 0 ? rows.columns() : 0;
    for (int r = 0; r < rows.size(); ++r) {
        SqlRow row(columns);
        for (int c = 0; c < columns; ++c) {
            if (rows.isNull(r, c)) continue;
            switch (rows.columnType(c)) {
            case kInt8: row[c] = SqlValue::of(static_cast<long long>(rows.int64(r, c))); break;
            case kInt4: row[c] = SqlValue::of(static_cast<long long>(rows.int32(r, c))); break;
            case kInt2:
            case kBool: {
                const std::string raw = rows.bytes(r, c);
                long long value = 0;
                for (unsigned char byte : raw) value = value << 8 | byte;
                row[c] = SqlValue::of(value);
                break;
            }
            case kFloat8: row[c] = SqlValue::of(rows.float8(r, c)); break;
            case kFloat4: {
                const int32_t bits = rows.int32(r, c);
                float value;
                std::memcpy(&value, &bits, sizeof value);
                row[c] = SqlValue::of(static_cast<double>(value));
                break;
            }
            case kBytea: row[c] = SqlValue::blob(rows.bytes(r, c)); break;
            default: row[c] = SqlValue::text(rows.bytes(r, c)); break;
            }
        }
        out.push_back(std::move(row));
    }
    return out;
}

}  // namespace VQFeature
