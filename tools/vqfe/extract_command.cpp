#include "tools/vqfe/extract_command.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>

#include "cache/pg_cache.h"
#include "cache/sqlite_cache.h"
#include "encoding/message_json.h"
#include "extractor/extractor.h"
#include "library/batch_runner.h"
#include "library/image_io.h"
#include "library/job_threads.h"
#include "tools/vqfe/annotate.h"
#include "tools/vqfe/batch_claims.h"
#include "tools/vqfe/interruption.h"
#include "tools/vqfe/progress.h"
#include "tools/vqfe/summary.h"
#include "vantor/graph_merge.h"
#include "vantor/vantor_system.h"

namespace vqfe {
namespace {

using VQFeature::CacheAdapter;

// Every kind's line of an image in one buffer and one write: the masks make an image's
// lines hundreds of kilobytes, and the output stream is unbuffered.
void printOutcome(const ExtractOptions& options, const ImageOutcome& outcome, std::ostream& out) {
    const std::string head = "{\"image\":" + VQFeature::jsonQuoted(outcome.image.path) +
                             ",\"asset\":" + VQFeature::jsonQuoted(outcome.image.assetId);
    char timing[64];
    std::snprintf(timing, sizeof timing, ",\"store\":%s,\"ms\":%.2f", outcome.fromStore ? "true" : "false",
                  outcome.milliseconds);
    std::string lines;
    for (const Kind& kind : options.kinds) {
        lines += head;
        lines += ",\"kind\":" + std::to_string(kind.number) + ",\"name\":" + VQFeature::jsonQuoted(kind.name) + timing;
        lines += ",\"result\":";
        auto found = outcome.blobs.find(kind.name);
        std::string error;
        bool written = false;
        if (found != outcome.blobs.end() && found->second.first != nullptr) {
            const int blobKind = kind.stringType.empty() ? kind.number : 121;
            written = VQFeature::appendBlobJson(lines, blobKind, found->second.first, found->second.second, &error);
        }
        if (!written) lines += "null";
        if (outcome.error.first != 0 || !outcome.error.second.empty()) {
            lines += ",\"error\":{\"code\":" + std::to_string(outcome.error.first) +
                     ",\"message\":" + VQFeature::jsonQuoted(outcome.error.second) + "}";
        } else if (!error.empty()) {
            lines += ",\"error\":{\"code\":0,\"message\":" + VQFeature::jsonQuoted(error) + "}";
        } else if (!written && kind.number == 9) {
            lines += ",\"note\":\"kind 9 has no blob format\"";
        }
        lines += "}\n";
    }
    out << lines;
}

void printFailure(const std::string& path, const std::string& message, std::ostream& out) {
    out << "{\"image\":" << VQFeature::jsonQuoted(path) << ",\"error\":{\"code\":-1,\"message\":" << VQFeature::jsonQuoted(message) << "}}\n";
}

// The end of a summary: where the results went and how to look at them.
void printWhereThingsAre(const ExtractOptions& options, std::ostream& err) {
    std::error_code ec;
    if (!options.drawDir.empty()) {
        err << "pictures: " << std::filesystem::absolute(options.drawDir, ec).lexically_normal().string() << "\n";
    }
    if (options.storePath.empty()) return;
    const std::string store = VQFeature::PgCache::isUri(options.storePath)
                                  ? VQFeature::PgConnection::masked(options.storePath)
                                  : std::filesystem::absolute(options.storePath, ec).lexically_normal().string();
    err << "store: " << store << "\n"
        << "report: vqfe report --store " << store << " --out DIR  (then open DIR/index.html;"
        << " also vqfe people, duplicates, search)\n";
}

// The files in their order, each once: a photo named twice (or also through its folder)
// is analysed and printed once.
std::vector<std::string> withoutRepeats(const std::vector<std::string>& files) {
    std::vector<std::string> kept;
    std::set<std::string> seen;
    for (const auto& file : files) {
        std::error_code ec;
        const std::filesystem::path canonical = std::filesystem::weakly_canonical(file, ec);
        if (seen.insert(ec ? file : canonical.string()).second) kept.push_back(file);
    }
    return kept;
}

// A SQLite store, created when missing. SQLite says only "unable to open database file"
// when the directory does not exist, so that is checked first and named.
std::shared_ptr<CacheAdapter> openSqliteStore(const std::string& path) {
    std::error_code ec;
    const auto folder = std::filesystem::absolute(path, ec).lexically_normal().parent_path();
    if (!ec && !std::filesystem::is_directory(folder, ec)) {
        throw std::runtime_error("result store " + path + ": its directory " + folder.string() + " does not exist");
    }
    return std::make_shared<VQFeature::SqliteCache>(path);
}

}  // namespace

std::string requestGraph(const std::vector<Kind>& kinds, const std::string& graphFile) {
    if (!graphFile.empty()) {
        std::ifstream in(graphFile);
        if (!in) throw std::runtime_error("cannot read graph file " + graphFile);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    std::vector<Vantor::AlgorithmType> types;
    std::vector<std::string> stringTypes;
    for (const Kind& kind : kinds) {
        if (kind.stringType.empty()) types.push_back(static_cast<Vantor::AlgorithmType>(kind.number));
        else stringTypes.push_back(kind.stringType);
    }
    return VQFeature::severalKindGraph(types, stringTypes);
}

int runExtract(const ExtractOptions& options, std::ostream& out, std::ostream& err) {
    std::vector<std::string> problems;
    const std::vector<std::string> files = withoutRepeats(collectImages(options.inputs, &problems));
    for (const auto& problem : problems) err << "vqfe extract: " << problem << "\n";
    if (files.empty()) {
        err << "vqfe extract: no images to analyse\n";
        return 1;
    }
    if (!options.drawDir.empty()) {
        std::error_code ec;
        std::filesystem::create_directories(options.drawDir, ec);
        if (!std::filesystem::is_directory(options.drawDir)) {
            err << "vqfe extract: --draw " << options.drawDir << ": cannot make a directory there"
                << (ec ? " (" + ec.message() + ")" : "") << "\n";
            return 1;
        }
    }
    std::shared_ptr<CacheAdapter> store;
    std::string graph;
    try {
        if (VQFeature::PgCache::isUri(options.storePath)) store = std::make_shared<VQFeature::PgCache>(options.storePath);
        else if (!options.storePath.empty()) store = openSqliteStore(options.storePath);
        graph = requestGraph(options.kinds, options.graphFile);
    } catch (const std::exception& e) {
        err << "vqfe extract: " << e.what() << "\n";
        return 1;
    }

    const AnalysisSetup setup{options.kinds, options.modelDir, options.frameworkConfig};
    const int jobs = std::max(1, std::min<int>(options.jobs, static_cast<int>(files.size())));
    setThreadsForJobs(jobs);
    // Each job's framework is set up on a thread of its own: one after the other, the last
    // job started a framework set-up later than the first.
    std::vector<std::unique_ptr<BatchRunner>> workers(jobs);
    {
        std::vector<std::thread> setUps;
        std::vector<std::exception_ptr> failures(jobs);
        for (int j = 1; j < jobs; ++j) {
            setUps.emplace_back([&workers, &failures, &setup, &graph, &store, j] {
                try {
                    workers[j] = std::make_unique<BatchRunner>(setup, graph, store);
                } catch (...) {
                    failures[j] = std::current_exception();
                }
            });
        }
        try {
            workers[0] = std::make_unique<BatchRunner>(setup, graph, store);
        } catch (...) {
            failures[0] = std::current_exception();
        }
        for (auto& thread : setUps) thread.join();
        for (const auto& failure : failures) {
            if (failure) std::rethrow_exception(failure);
        }
    }
    for (const auto& worker : workers) {
        if (worker->initCode() != 0) {
            err << "vqfe extract: the framework did not initialise (code " << worker->initCode() << ", "
                << VQFeature::VantorSystem::code2Error(static_cast<Vantor::VantorErrorCode>(worker->initCode()))
                << "); check --models and --framework-config\n";
            return 1;
        }
    }

    Interruption interruption;
    Progress progress(files.size());
    Summary summary(options.summary);
    size_t done = 0;
    std::mutex outputMutex;
    BatchClaims claims(files.size(), jobs);
    auto work = [&](BatchRunner& worker) {
        for (size_t first = 0, last = 0; !Interruption::requested() && claims.next(&first, &last);) {
            std::vector<ImageOutcome> outcomes;
            outcomes.reserve(last - first);
            for (size_t i = first; i < last; ++i) {
                std::string error = pathUnfitForStore(options.storePath, files[i]);
                auto image = error.empty() ? loadImage(files[i], &error) : std::nullopt;
                if (!image) {
                    std::lock_guard<std::mutex> lock(outputMutex);
                    printFailure(files[i], error, out);
                    summary.addFailure(files[i], error);
                    progress.advance();
                    ++done;
                    continue;
                }
                if (image->truncated) {
                    std::lock_guard<std::mutex> lock(outputMutex);
                    progress.note(err, "vqfe extract: " + truncatedWarning(files[i]));
                }
                outcomes.emplace_back();
                outcomes.back().image = std::move(*image);
            }
            if (outcomes.empty()) continue;
            std::vector<ImageOutcome*> batch;
            for (auto& outcome : outcomes) batch.push_back(&outcome);
            try {
                worker.run(batch);
            } catch (const std::exception& e) {
                for (auto& outcome : outcomes) outcome.error = {-1, e.what()};
            }
            for (auto& outcome : outcomes) {
                std::string drawError;
                if (!options.drawDir.empty()) drawAnnotations(outcome.image, outcome.blobs, options.drawDir, &drawError);
                std::lock_guard<std::mutex> lock(outputMutex);
                printOutcome(options, outcome, out);
                if (!drawError.empty()) progress.note(err, "vqfe extract: " + drawError);
                summary.add(outcome.image.path, outcome.blobs, outcome.fromStore, outcome.milliseconds,
                            outcome.error.second);
                progress.advance();
                ++done;
            }
        }
    };
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    for (int j = 1; j < jobs; ++j) threads.emplace_back(work, std::ref(*workers[j]));
    work(*workers[0]);
    for (auto& thread : threads) thread.join();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    out.flush();
    progress.finish();
    if (options.summary) {
        summary.print(err, seconds);
        printWhereThingsAre(options, err);
    }
    if (Interruption::requested()) {
        err << "vqfe extract: interrupted: " << done << " of " << files.size() << " images done"
            << (options.storePath.empty() ? "\n" : "; the store keeps their results: run the same command again to go on\n");
        return 130;
    }
    return 0;
}

}  // namespace vqfe
