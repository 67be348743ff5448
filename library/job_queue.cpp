#include "library/job_queue.h"

#include <algorithm>
#include <stdexcept>

#include "cache/pg_cache.h"

namespace vqfe {
namespace {

using VQFeature::PgParam;
using VQFeature::PgRows;

// Serialises table creation between workers starting at once.
constexpr const char* kSchemaLock = "SELECT pg_advisory_xact_lock(7716226150)";

struct LeaseLost {};

std::string tokenArray(const std::vector<long long>& tokens) {
    std::string text = "{";
    for (size_t i = 0; i < tokens.size(); ++i) text += (i ? "," : "") + std::to_string(tokens[i]);
    return text + "}";
}

}  // namespace

JobQueue::JobQueue(const std::string& uri) : connection_(uri) {
    VQFeature::PgCache::prepareResults(connection_);
    connection_.transact([&] {
        connection_.command(kSchemaLock);
        // Only when missing: DDL on existing tables would wait for the locks of every
        // open transaction, such as a hung worker's.
        if (connection_.command("SELECT (to_regclass('vqfe_claims') IS NOT NULL)::int").int32(0, 0) == 1) return;
        connection_.command(
            "CREATE TABLE IF NOT EXISTS vqfe_jobs ("
            " id bigserial PRIMARY KEY,"
            " asset_id text NOT NULL,"
            " path text NOT NULL,"
            " kinds text NOT NULL,"
            " state text NOT NULL DEFAULT 'pending' CHECK (state IN ('pending', 'leased', 'done', 'failed')),"
            " lease bigint,"
            " lease_until timestamptz,"
            " worker text,"
            " attempts integer NOT NULL DEFAULT 0,"
            " error text,"
            " enqueued_at timestamptz NOT NULL DEFAULT clock_timestamp(),"
            " finished_at timestamptz,"
            " UNIQUE (asset_id, kinds))");
        connection_.command("CREATE INDEX IF NOT EXISTS vqfe_jobs_open ON vqfe_jobs (id) WHERE state IN ('pending', 'leased')");
        connection_.command(
            "CREATE TABLE IF NOT EXISTS vqfe_claims ("
            " id bigserial PRIMARY KEY,"
            " job_id bigint NOT NULL,"
            " worker text NOT NULL,"
            " claimed_at timestamptz NOT NULL DEFAULT clock_timestamp(),"
            " lease_until timestamptz NOT NULL,"
            " finished_at timestamptz,"
            " outcome text)");
    });
    connection_.prepare("vqfe_enqueue",
                        "INSERT INTO vqfe_jobs (asset_id, path, kinds) VALUES ($1, $2, $3)"
                        " ON CONFLICT (asset_id, kinds) DO NOTHING");
    connection_.prepare("vqfe_abandon",
                        "UPDATE vqfe_jobs SET state = 'failed', finished_at = clock_timestamp(),"
                        " error = 'abandoned: its lease ran out ' || attempts || ' times (each worker died or hung)'"
                        " WHERE id IN (SELECT id FROM vqfe_jobs WHERE state = 'leased'"
                        "  AND lease_until < clock_timestamp() AND attempts >= $1 FOR UPDATE SKIP LOCKED)");
    connection_.prepare("vqfe_claim",
                        "WITH picked AS ("
                        "  SELECT id FROM vqfe_jobs"
                        "  WHERE state = 'pending' OR (state = 'leased' AND lease_until < clock_timestamp())"
                        "  ORDER BY id LIMIT $1 FOR UPDATE SKIP LOCKED),"
                        " claimed AS ("
                        "  UPDATE vqfe_jobs j SET state = 'leased', worker = $3, attempts = attempts + 1,"
                        "   lease = nextval('vqfe_claims_id_seq'),"
                        "   lease_until = clock_timestamp() + make_interval(secs => $2)"
                        "  FROM picked WHERE j.id = picked.id"
                        "  RETURNING j.id, j.asset_id, j.path, j.kinds, j.lease, j.lease_until, j.worker),"
                        " logged AS ("
                        "  INSERT INTO vqfe_claims (id, job_id, worker, lease_until)"
                        "  SELECT lease, id, worker, lease_until FROM claimed)"
                        " SELECT id, asset_id, path, kinds, lease FROM claimed ORDER BY id");
    connection_.prepare("vqfe_renew",
                        "WITH renewed AS ("
                        "  UPDATE vqfe_jobs SET lease_until = clock_timestamp() + make_interval(secs => $2)"
                        "  WHERE lease = ANY($1::bigint[]) AND state = 'leased' RETURNING lease, lease_until)"
                        " UPDATE vqfe_claims c SET lease_until = r.lease_until FROM renewed r"
                        " WHERE c.id = r.lease RETURNING c.id");
    connection_.prepare("vqfe_finish",
                        "UPDATE vqfe_jobs SET state = $3, error = $4, finished_at = clock_timestamp(),"
                        " lease_until = NULL WHERE id = $1 AND lease = $2 AND state = 'leased'");
    connection_.prepare("vqfe_claim_end",
                        "UPDATE vqfe_claims SET finished_at = clock_timestamp(), outcome = $2 WHERE id = $1");
    connection_.prepare("vqfe_counts", "SELECT state, count(*) FROM vqfe_jobs GROUP BY state");
    connection_.prepare("vqfe_recent",
                        "SELECT (count(*) / greatest(1, extract(epoch FROM max(finished_at) - min(finished_at))))::float8"
                        " FROM vqfe_jobs"
                        " WHERE state = 'done' AND finished_at > clock_timestamp() - interval '60 seconds'");
    connection_.prepare("vqfe_open", "SELECT count(*) FROM vqfe_jobs WHERE state IN ('pending', 'leased')");
}

long long JobQueue::enqueue(const std::vector<std::pair<std::string, std::string>>& images, const std::string& kinds) {
    long long added = 0;
    connection_.transact([&] {
        added = 0;
        for (const auto& [assetId, path] : images) {
            added += connection_.execute("vqfe_enqueue", {PgParam::text(assetId), PgParam::text(path), PgParam::text(kinds)})
                         .affected();
        }
    });
    return added;
}

std::vector<Job> JobQueue::claim(int count, int leaseSeconds, const std::string& worker) {
    std::vector<Job> jobs;
    connection_.run([&] {
        jobs.clear();
        connection_.execute("vqfe_abandon", {PgParam::number(kMaxAttempts)});
        PgRows rows = connection_.execute(
            "vqfe_claim", {PgParam::number(count), PgParam::number(leaseSeconds), PgParam::text(worker)});
        for (int r = 0; r < rows.size(); ++r) {
            jobs.push_back({rows.int64(r, 0), rows.bytes(r, 1), rows.bytes(r, 2), rows.bytes(r, 3), rows.int64(r, 4)});
        }
    });
    return jobs;
}

std::vector<long long> JobQueue::renew(const std::vector<long long>& leases, int leaseSeconds) {
    std::vector<long long> lost;
    if (leases.empty()) return lost;
    connection_.run([&] {
        PgRows rows =
            connection_.execute("vqfe_renew", {PgParam::text(tokenArray(leases)), PgParam::number(leaseSeconds)});
        std::vector<long long> kept;
        for (int r = 0; r < rows.size(); ++r) kept.push_back(rows.int64(r, 0));
        lost.clear();
        for (long long lease : leases) {
            if (std::find(kept.begin(), kept.end(), lease) == kept.end()) lost.push_back(lease);
        }
    });
    return lost;
}

bool JobQueue::complete(const Job& job, const std::vector<std::shared_ptr<VQFeature::Result>>& results,
                        const VQFeature::ImageRecord* image) {
    try {
        connection_.transact([&] {
            if (connection_.execute("vqfe_finish", {PgParam::number(job.id), PgParam::number(job.lease),
                                                    PgParam::text("done"), PgParam::null()})
                    .affected() != 1) {
                throw LeaseLost{};
            }
            VQFeature::PgCache::saveRows(connection_, results, image);
            connection_.execute("vqfe_claim_end", {PgParam::number(job.lease), PgParam::text("done")});
        });
        return true;
    } catch (const LeaseLost&) {
        return false;
    }
}

bool JobQueue::fail(const Job& job, const std::string& error) {
    try {
        connection_.transact([&] {
            if (connection_.execute("vqfe_finish", {PgParam::number(job.id), PgParam::number(job.lease),
                                                    PgParam::text("failed"), PgParam::text(error)})
                    .affected() != 1) {
                throw LeaseLost{};
            }
            connection_.execute("vqfe_claim_end", {PgParam::number(job.lease), PgParam::text("failed")});
        });
        return true;
    } catch (const LeaseLost&) {
        return false;
    }
}

std::map<std::string, long long> JobQueue::counts() {
    std::map<std::string, long long> counts{{"pending", 0}, {"leased", 0}, {"done", 0}, {"failed", 0}};
    connection_.run([&] {
        PgRows rows = connection_.execute("vqfe_counts");
        for (int r = 0; r < rows.size(); ++r) counts[rows.bytes(r, 0)] = rows.int64(r, 1);
    });
    return counts;
}

double JobQueue::throughput() {
    double rate = 0;
    connection_.run([&] { rate = connection_.execute("vqfe_recent").float8(0, 0); });
    return rate;
}

long long JobQueue::open() {
    long long open = 0;
    connection_.run([&] { open = connection_.execute("vqfe_open").int64(0, 0); });
    return open;
}

}  // namespace vqfe
