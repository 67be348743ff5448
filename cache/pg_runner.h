// SqlRunner over a PgConnection: ?N parameters become $N, values go as text (blobs as
// binary) and come back by their column type. Used inside the connection's run() or
// transact() units.
#pragma once

#include "cache/pg_connection.h"
#include "cache/sql_runner.h"

namespace VQFeature {

class PgRunner : public SqlRunner {
public:
    explicit PgRunner(PgConnection& connection) : connection_(connection) {}
    std::vector<SqlRow> run(const std::string& sql, const std::vector<SqlValue>& params = {}) override;
    bool postgres() const override { return true; }

private:
    PgConnection& connection_;
};

}  // namespace VQFeature
