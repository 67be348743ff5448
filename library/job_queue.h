// JobQueue: shared work in the PostgreSQL result store, for `vqfe enqueue`, `work` and
// `status`. A job is one image (content digest, path, kind names); workers on any number
// of machines claim pending jobs in batches (SELECT ... FOR UPDATE SKIP LOCKED) under a
// lease that they renew while they work. A job whose lease ran out is claimed again; the
// results of a job and its "done" are written in one transaction, and only by the holder
// of the job's current lease, so a job is done exactly once. Every claim is recorded in
// vqfe_claims (worker, lease, end), which shows who ran what when.
//
// One connection per object; not thread-safe (one object per thread).
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cache/pg_connection.h"
#include "cache/store_index.h"
#include "extractor/result.h"

namespace vqfe {

struct Job {
    long long id = 0;
    std::string assetId;  // md5 of the file's bytes when it was enqueued
    std::string path;
    std::string kinds;    // kind names, comma-separated, as enqueued
    long long lease = 0;  // the claim's token: completing needs it
};

class JobQueue {
public:
    // Connects and creates the job tables (and the results table) when missing.
    explicit JobQueue(const std::string& uri);

    // Records pending jobs for (content digest, path) pairs, all with the same kinds, in
    // one transaction. Returns how many were new: an image (by content) already queued
    // or done with the same kinds is not queued again.
    long long enqueue(const std::vector<std::pair<std::string, std::string>>& images, const std::string& kinds);

    // Claims up to count jobs that are pending or whose lease expired, leased to worker
    // for leaseSeconds. Jobs abandoned kMaxAttempts times are failed instead.
    std::vector<Job> claim(int count, int leaseSeconds, const std::string& worker);
    // Extends the leases still held; returns the tokens that were no longer held.
    std::vector<long long> renew(const std::vector<long long>& leases, int leaseSeconds);
    // In one transaction: writes the results and marks the job done. False (nothing
    // written) when the lease was lost to another worker.
    // The image's record (path, size), when given, goes into the store's index with them.
    bool complete(const Job& job, const std::vector<std::shared_ptr<VQFeature::Result>>& results,
                  const VQFeature::ImageRecord* image = nullptr);
    // Marks the job failed with error; false when the lease was lost.
    bool fail(const Job& job, const std::string& error);

    // Jobs by state ("pending", "leased", "done", "failed"), every state present.
    std::map<std::string, long long> counts();
    // Jobs done per second over the completions of the last minute (0 when none).
    double throughput();
    // Pending jobs plus leased ones: work that someone still has to finish.
    long long open();

    static constexpr int kMaxAttempts = 5;

private:
    VQFeature::PgConnection connection_;
};

}  // namespace vqfe
