#include "tools/vqfe/work_cli.h"

#include <cstdlib>
#include <iostream>

#include "cache/pg_cache.h"
#include "library/work_command.h"
#include "tools/vqfe/extract_command.h"
#include "tools/vqfe/fd_output.h"
#include "tools/vqfe/usage.h"

namespace vqfe {
namespace {

const char* const kEnqueueUsage =
    "usage: vqfe enqueue --store URI [--kind K]... IMAGE|DIR...\n"
    "\n"
    "Records the images (content digest, absolute path, kinds) as pending jobs in the\n"
    "PostgreSQL store for `vqfe work` on any machine. Workers read each image at that\n"
    "path, so it must be the same on every machine (shared storage). An image already\n"
    "queued or done with the same kinds is not queued again.\n"
    "\n"
    "  --store URI   postgresql://[user[:password]@][host][:port]/database[?...]\n"
    "  --kind K      a kind by number or name (repeatable; 'all'; default face)\n";

const char* const kWorkUsage =
    "usage: vqfe work --store URI [--jobs N] [--lease SECONDS] [--batch N] [--follow]\n"
    "                 [--models DIR] [--framework-config FILE]\n"
    "\n"
    "Claims pending jobs in batches, runs them and writes each job's results together\n"
    "with its \"done\" in one transaction. Each claim is a lease, renewed while the job\n"
    "runs; a job whose worker died is claimed again once its lease runs out. A job whose\n"
    "image cannot be read or analysed is marked failed with the error, not retried.\n"
    "Returns when no job is pending or leased, or after the batch in hand on SIGTERM or\n"
    "SIGINT; prints done, failed, lost and seconds.\n"
    "\n"
    "  --store URI            the PostgreSQL store the jobs were enqueued in\n"
    "  --jobs N               worker threads, each with its own framework on one thread\n"
    "                         (networks shared; one per core; default 1)\n"
    "  --lease SECONDS        lease length (default 60)\n"
    "  --batch N              jobs claimed at once per thread (default 8)\n"
    "  --follow               keep waiting for new jobs instead of returning\n"
    "  --models DIR           model directory (default: the build's models/)\n"
    "  --framework-config FILE  framework configuration (default: the build's framework.json)\n";

const char* const kStatusUsage =
    "usage: vqfe status --store URI\n"
    "\n"
    "Prints the jobs by state and the throughput, one 'name: value' per line: pending,\n"
    "leased, done, failed, and throughput (jobs done per second over the last minute).\n";

bool number(const std::string& text, int low, int high, int* into) {
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || value < low || value > high) return false;
    *into = static_cast<int>(value);
    return true;
}

}  // namespace

bool isWorkCommand(const std::string& command) {
    return command == "enqueue" || command == "work" || command == "status";
}

int workCommand(const std::string& command, const std::vector<std::string>& args, const std::string& baseDir) {
    const char* usage = command == "enqueue" ? kEnqueueUsage : command == "work" ? kWorkUsage : kStatusUsage;
    WorkOptions options;
    options.graphOf = [](const std::vector<Kind>& kinds) { return requestGraph(kinds); };
    options.modelDir = baseDir + "/models";
    options.frameworkConfig = baseDir + "/share/vqfe/framework.json";
    std::vector<Kind> kinds;
    std::vector<std::string> inputs;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") return std::cout << usage, 0;
        const bool hasValue = i + 1 < args.size();
        const std::string value = hasValue ? args[i + 1] : "";
        auto needs = [&](const char* what) { return usageError(arg + " needs " + what, usage); };
        if (arg == "--store") {
            if (!hasValue) return needs("a connection URI");
            options.store = args[++i];
        } else if (command == "enqueue" && arg == "--kind") {
            if (!hasValue) return needs("a value");
            ++i;
            if (value == "all") {
                for (const Kind& kind : kindsWithBlobs()) kinds.push_back(kind);
                continue;
            }
            auto kind = parseKind(value);
            if (!kind) return usageError("unknown kind '" + value + "'", usage);
            kinds.push_back(*kind);
        } else if (command == "work" && arg == "--jobs") {
            if (!hasValue || !number(args[++i], 1, 64, &options.jobs)) return usageError("--jobs takes 1 to 64", usage);
        } else if (command == "work" && arg == "--lease") {
            if (!hasValue || !number(args[++i], 1, 86400, &options.leaseSeconds)) {
                return usageError("--lease takes 1 to 86400 seconds", usage);
            }
        } else if (command == "work" && arg == "--batch") {
            if (!hasValue || !number(args[++i], 1, 256, &options.batch)) return usageError("--batch takes 1 to 256", usage);
        } else if (command == "work" && arg == "--follow") {
            options.follow = true;
        } else if (command == "work" && arg == "--models") {
            if (!hasValue) return needs("a directory");
            options.modelDir = args[++i];
        } else if (command == "work" && arg == "--framework-config") {
            if (!hasValue) return needs("a file");
            options.frameworkConfig = args[++i];
        } else if (!arg.empty() && arg[0] == '-') {
            return usageError("unknown option " + arg, usage);
        } else if (command == "enqueue") {
            inputs.push_back(arg);
        } else {
            return usageError("unexpected argument " + arg, usage);
        }
    }
    if (!VQFeature::PgCache::isUri(options.store)) {
        return usageError("--store needs a postgresql:// connection URI", usage);
    }
    if (command == "status") return runStatus(options.store, std::cout, std::cerr);
    if (command == "enqueue") {
        if (inputs.empty()) return usageError("no images given", usage);
        if (kinds.empty()) kinds.push_back(*parseKind("face"));
        return runEnqueue(options.store, kinds, inputs, std::cout, std::cerr);
    }
    // The framework writes diagnostics to standard output; keep them off the report.
    FdOutput report(false);
    return runWork(options, report.stream(), std::cerr);
}

}  // namespace vqfe
