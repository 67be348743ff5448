#include "library/work_command.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>

#include "library/batch_runner.h"
#include "library/image_io.h"
#include "library/job_queue.h"
#include "library/job_threads.h"
#include "library/staging_cache.h"
#include "vantor/md5.h"
#include "vantor/vantor_system.h"

namespace vqfe {
namespace {

// Set by SIGTERM or SIGINT: finish the batch in hand, claim no more, return. A lock-free
// atomic, so the handler may set it and every worker thread read it.
std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler needs a lock-free flag");
void requestStop(int) { stopRequested = true; }

// Installs requestStop for SIGTERM and SIGINT while it lives.
class StopOnSignal {
public:
    StopOnSignal() {
        stopRequested = false;
        struct sigaction action = {};
        action.sa_handler = requestStop;
        sigemptyset(&action.sa_mask);
        sigaction(SIGTERM, &action, &oldTerm_);
        sigaction(SIGINT, &action, &oldInt_);
    }
    ~StopOnSignal() {
        sigaction(SIGTERM, &oldTerm_, nullptr);
        sigaction(SIGINT, &oldInt_, nullptr);
    }
    StopOnSignal(const StopOnSignal&) = delete;
    StopOnSignal& operator=(const StopOnSignal&) = delete;

private:
    struct sigaction oldTerm_ = {};
    struct sigaction oldInt_ = {};
};

std::string joinNames(const std::vector<Kind>& kinds) {
    std::string names;
    for (const Kind& kind : kinds) names += (names.empty() ? "" : ",") + kind.name;
    return names;
}

std::string hostAndPid() {
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    return std::string(host) + ":" + std::to_string(getpid());
}

// Renews the leases of every job this process holds, on its own connection, a few
// times per lease period, so a slow batch keeps its jobs and a dead process loses them.
class LeaseKeeper {
public:
    LeaseKeeper(const std::string& uri, int leaseSeconds, std::ostream& err)
        : queue_(uri), leaseSeconds_(leaseSeconds), err_(err), thread_([this] { loop(); }) {}
    ~LeaseKeeper() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        wake_.notify_all();
        thread_.join();
    }
    void hold(const std::vector<Job>& jobs) {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const Job& job : jobs) held_.insert(job.lease);
    }
    void release(const std::vector<Job>& jobs) {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const Job& job : jobs) held_.erase(job.lease);
    }

private:
    void loop() {
        const auto period = std::chrono::milliseconds(std::max(1000 * leaseSeconds_ / 3, 200));
        std::unique_lock<std::mutex> lock(mutex_);
        while (!wake_.wait_for(lock, period, [this] { return stop_; })) {
            const std::vector<long long> leases(held_.begin(), held_.end());
            lock.unlock();
            try {
                // A lost lease needs no action here: completing the job will be refused.
                queue_.renew(leases, leaseSeconds_);
            } catch (const std::exception& e) {
                std::lock_guard<std::mutex> errorLock(errorMutex_);
                err_ << "vqfe work: renewing leases: " << e.what() << "\n";
            }
            lock.lock();
        }
    }

    JobQueue queue_;
    const int leaseSeconds_;
    std::ostream& err_;
    std::mutex mutex_;
    std::mutex errorMutex_;
    std::condition_variable wake_;
    std::set<long long> held_;
    bool stop_ = false;
    std::thread thread_;  // last: starts once the rest is ready
};

struct Tally {
    std::atomic<long long> done{0}, failed{0}, lost{0};
};

// One worker thread: its own queue connection and one runner per set of kinds met.
class WorkThread {
public:
    WorkThread(const WorkOptions& options, LeaseKeeper& keeper, Tally& tally, std::ostream& err, std::mutex& errMutex)
        : options_(options), queue_(options.store), keeper_(keeper), tally_(tally), err_(err), errMutex_(errMutex),
          worker_(hostAndPid()) {}

    // Returns when no job is open (never, with follow) or a stop was asked for. Throws on
    // store failures.
    void run() {
        while (!stopRequested) {
            std::vector<Job> jobs = queue_.claim(options_.batch, options_.leaseSeconds, worker_);
            if (jobs.empty()) {
                if (!options_.follow && queue_.open() == 0) return;
                // Leased jobs may still come back when their worker died: look again.
                std::this_thread::sleep_for(std::chrono::milliseconds(250));
                continue;
            }
            keeper_.hold(jobs);
            std::map<std::string, std::vector<Job>> byKinds;
            for (const Job& job : jobs) byKinds[job.kinds].push_back(job);
            try {
                for (const auto& [kinds, group] : byKinds) runGroup(kinds, group);
            } catch (...) {
                keeper_.release(jobs);  // they expire and go to another worker
                throw;
            }
            keeper_.release(jobs);
        }
    }

private:
    struct Runner {
        AnalysisSetup setup;
        std::unique_ptr<BatchRunner> batch;
        std::shared_ptr<StagingCache> stage;
        std::string problem;  // why these kinds cannot run, when they cannot
    };

    Runner& runnerFor(const std::string& kinds) {
        auto& runner = runners_[kinds];
        if (runner.batch || !runner.problem.empty()) return runner;
        runner.setup.modelDir = options_.modelDir;
        runner.setup.frameworkConfig = options_.frameworkConfig;
        std::stringstream names(kinds);
        for (std::string name; std::getline(names, name, ',');) {
            auto kind = parseKind(name);
            if (!kind) {
                runner.problem = "unknown kind '" + name + "'";
                return runner;
            }
            runner.setup.kinds.push_back(*kind);
        }
        runner.stage = std::make_shared<StagingCache>();
        runner.batch = std::make_unique<BatchRunner>(runner.setup, options_.graphOf(runner.setup.kinds), runner.stage);
        if (const int code = runner.batch->initCode(); code != 0) {
            // Not the images' fault: the jobs stay leased and go to another worker.
            throw std::runtime_error(
                "the framework did not initialise (code " + std::to_string(code) + ", " +
                VQFeature::VantorSystem::code2Error(static_cast<Vantor::VantorErrorCode>(code)) +
                "); check --models and --framework-config");
        }
        return runner;
    }

    void finish(const Job& job, const std::string& error, const std::vector<std::shared_ptr<VQFeature::Result>>& results,
                const VQFeature::ImageRecord* image = nullptr) {
        const bool held = error.empty() ? queue_.complete(job, results, image) : queue_.fail(job, error);
        (held ? (error.empty() ? tally_.done : tally_.failed) : tally_.lost)++;
        std::lock_guard<std::mutex> lock(errMutex_);
        if (!held) err_ << "vqfe work: " << job.path << ": lease lost to another worker, result dropped\n";
        else if (!error.empty()) err_ << "vqfe work: " << job.path << ": failed: " << error << "\n";
    }

    void runGroup(const std::string& kinds, const std::vector<Job>& jobs) {
        Runner& runner = runnerFor(kinds);
        std::vector<ImageOutcome> outcomes;
        std::vector<const Job*> owners;
        outcomes.reserve(jobs.size());
        for (const Job& job : jobs) {
            std::string error;
            auto image = runner.problem.empty() ? loadImage(job.path, &error) : std::nullopt;
            if (!runner.problem.empty()) error = runner.problem;
            else if (image && image->assetId != job.assetId) error = "the file changed since it was enqueued";
            if (!error.empty()) {
                finish(job, error, {});
                continue;
            }
            if (image->truncated) {
                std::lock_guard<std::mutex> lock(errMutex_);
                err_ << "vqfe work: " << truncatedWarning(job.path) << "\n";
            }
            outcomes.emplace_back();
            outcomes.back().image = std::move(*image);
            owners.push_back(&job);
        }
        if (outcomes.empty()) return;
        std::vector<ImageOutcome*> batch;
        for (auto& outcome : outcomes) batch.push_back(&outcome);
        runner.stage->clearAll();
        runner.batch->run(batch);
        for (size_t i = 0; i < outcomes.size(); ++i) {
            const ImageOutcome& outcome = outcomes[i];
            std::string error;
            if (!outcome.produced) {
                error = "analysis failed (code " + std::to_string(outcome.error.first) + ")" +
                        (outcome.error.second.empty() ? "" : ": " + outcome.error.second);
            }
            std::error_code ec;
            const auto bytes = std::filesystem::file_size(owners[i]->path, ec);
            const VQFeature::ImageRecord image{owners[i]->assetId, owners[i]->path,
                                               ec ? 0 : static_cast<long long>(bytes), outcome.image.buffer->width,
                                               outcome.image.buffer->height, 0};
            finish(*owners[i], error, runner.stage->take(outcome.image.assetId), &image);
        }
    }

    const WorkOptions& options_;
    JobQueue queue_;
    LeaseKeeper& keeper_;
    Tally& tally_;
    std::ostream& err_;
    std::mutex& errMutex_;
    const std::string worker_;
    std::map<std::string, Runner> runners_;
};

}  // namespace

int runEnqueue(const std::string& store, const std::vector<Kind>& kinds, const std::vector<std::string>& inputs,
               std::ostream& out, std::ostream& err) {
    std::vector<std::string> problems;
    const std::vector<std::string> files = collectImages(inputs, &problems);
    for (const auto& problem : problems) err << "vqfe enqueue: " << problem << "\n";
    if (files.empty()) {
        err << "vqfe enqueue: no images to enqueue\n";
        return 1;
    }
    // A transaction per chunk: one commit per image would cost a disk flush each.
    constexpr size_t kChunk = 256;
    try {
        JobQueue queue(store);
        const std::string names = joinNames(kinds);
        long long added = 0;
        long long readable = 0;
        std::vector<std::pair<std::string, std::string>> chunk;
        for (size_t i = 0; i < files.size(); ++i) {
            std::ifstream in(files[i], std::ios::binary);
            const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            const std::string unfit = pathUnfitForStore(store, files[i]);
            if (!unfit.empty()) {
                err << "vqfe enqueue: " << unfit << "\n";
            } else if (!in && !in.eof()) {
                err << "vqfe enqueue: " << files[i] << ": cannot read\n";
            } else {
                // The absolute path, so workers started elsewhere find the image.
                std::error_code ec;
                const std::string path = std::filesystem::absolute(files[i], ec).lexically_normal().string();
                chunk.emplace_back(VQFeature::md5(bytes), ec ? files[i] : path);
                ++readable;
            }
            if (chunk.size() == kChunk || (i + 1 == files.size() && !chunk.empty())) {
                added += queue.enqueue(chunk, names);
                chunk.clear();
            }
        }
        out << "enqueued: " << added << "\nalready queued: " << readable - added << "\n";
    } catch (const std::exception& e) {
        err << "vqfe enqueue: " << e.what() << "\n";
        return 1;
    }
    return 0;
}

int runWork(const WorkOptions& options, std::ostream& out, std::ostream& err) {
    Tally tally;
    std::mutex errMutex;
    std::atomic<bool> broken{false};
    StopOnSignal stopOnSignal;
    const auto start = std::chrono::steady_clock::now();
    setThreadsForJobs(options.jobs);
    try {
        LeaseKeeper keeper(options.store, options.leaseSeconds, err);
        std::vector<std::unique_ptr<WorkThread>> workers;
        for (int j = 0; j < options.jobs; ++j) {
            workers.push_back(std::make_unique<WorkThread>(options, keeper, tally, err, errMutex));
        }
        auto body = [&](WorkThread& worker) {
            try {
                worker.run();
            } catch (const std::exception& e) {
                std::lock_guard<std::mutex> lock(errMutex);
                err << "vqfe work: " << e.what() << "\n";
                broken = true;
            }
        };
        std::vector<std::thread> threads;
        for (size_t j = 1; j < workers.size(); ++j) threads.emplace_back(body, std::ref(*workers[j]));
        body(*workers[0]);
        for (auto& thread : threads) thread.join();
    } catch (const std::exception& e) {
        err << "vqfe work: " << e.what() << "\n";
        return 1;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    char line[160];
    std::snprintf(line, sizeof line, "done: %lld\nfailed: %lld\nlost: %lld\nseconds: %.1f\n", tally.done.load(),
                  tally.failed.load(), tally.lost.load(), seconds);
    out << line;
    return broken ? 1 : 0;
}

int runStatus(const std::string& store, std::ostream& out, std::ostream& err) {
    try {
        JobQueue queue(store);
        auto counts = queue.counts();
        for (const char* state : {"pending", "leased", "done", "failed"}) out << state << ": " << counts[state] << "\n";
        char rate[64];
        std::snprintf(rate, sizeof rate, "throughput: %.2f\n", queue.throughput());
        out << rate;
    } catch (const std::exception& e) {
        err << "vqfe status: " << e.what() << "\n";
        return 1;
    }
    return 0;
}

}  // namespace vqfe
