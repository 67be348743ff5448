// vqfe: the library's command-line tool. Subcommands: extract, score, graph, models, show;
// enqueue, work, status for work shared through a PostgreSQL store; people, duplicates,
// search, report, reindex for questions across the photos of a store.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "encoding/message_json.h"
#include "library/kinds.h"
#include "tools/vqfe/extract_command.h"
#include "tools/vqfe/fd_output.h"
#include "tools/vqfe/library_cli.h"
#include "tools/vqfe/usage.h"
#include "tools/vqfe/work_cli.h"
#include "vantor/cover_util.h"
#include "vantor/image_scorer.h"
#include "vantor/vantor_system.h"

namespace {

using vqfe::Kind;
using vqfe::usageError;

const char* const kUsage =
    "usage: vqfe <command> [options]\n"
    "\n"
    "commands:\n"
    "  extract     analyse photos and print one JSON object per image and kind\n"
    "  score       print the image-quality score of photos\n"
    "  graph       print the built-in graph of a kind\n"
    "  models      print the default model list\n"
    "  show        decode a stored result blob to JSON\n"
    "  enqueue     queue photos as jobs in a PostgreSQL store for workers on any machine\n"
    "  work        run queued jobs (any number of workers, on any number of machines)\n"
    "  status      print the jobs of a PostgreSQL store by state\n"
    "  people      group the faces of a store into persons; name and merge them\n"
    "  duplicates  print groups of copies of the same photo in a store\n"
    "  search      print the photos of a store with labels, a person, a number of faces\n"
    "  report      write a static HTML report of a store\n"
    "  reindex     build the index of a store written before it kept one\n"
    "\n"
    "Run 'vqfe <command> --help' for the options of a command.\n";

const char* const kExtractUsage =
    "usage: vqfe extract [--kind K]... [--graph FILE] [--models DIR] [--framework-config FILE]\n"
    "                    [--store FILE|URI] [--draw DIR] [--jobs N] [--summary] [--verbose] IMAGE|DIR...\n"
    "\n"
    "Runs the kinds over the images (JPEG or PNG; directories are searched recursively) and\n"
    "prints one JSON object per image and kind on standard output. Several kinds run as one\n"
    "several-kind request: one framework run per image.\n"
    "\n"
    "  --kind K        a kind by number or name (repeatable; 'all' for every kind with a\n"
    "                  result format; default face). Known kinds:\n"
    "%s"
    "  --graph FILE    run this graph instead of the built-in one(s)\n"
    "  --models DIR    model directory (default: the build's models/)\n"
    "  --framework-config FILE  framework configuration (default: the build's framework.json)\n"
    "  --store FILE|URI  keep results in this SQLite store and answer from it next time;\n"
    "                  a postgresql:// connection URI uses that PostgreSQL store instead\n"
    "  --draw DIR      write a PNG per image with what was found drawn on it\n"
    "  --jobs N        run N extractors side by side, each with its own framework on one\n"
    "                  thread, sharing the networks (one per core)\n"
    "  --summary       print a human summary on standard error at the end\n"
    "  --verbose       show the library's own diagnostic lines on standard error\n"
    "  --              what follows are images and directories, also names starting with '-'\n"
    "\n"
    "Ctrl-C stops the run after the images in hand (their results are printed and stored;\n"
    "run the same command again to go on); a second Ctrl-C stops it at once.\n"
    "\n"
    "Exit status: 0 when every image was looked at (per-image errors are in the output),\n"
    "1 when nothing could run, 2 for a usage error, 130 when Ctrl-C stopped the run.\n";

const char* const kScoreUsage =
    "usage: vqfe score [--model FILE] IMAGE...\n"
    "\n"
    "Prints the image-quality score of each image, 0 (worst) to 1 (best).\n"
    "  --model FILE   quality model (default: the framework's built-in model)\n";

const char* const kGraphUsage =
    "usage: vqfe graph KIND\n"
    "\n"
    "Prints the built-in graph of a kind (by number or name, as 'vqfe extract --help' lists them).\n";

const char* const kModelsUsage =
    "usage: vqfe models\n"
    "\n"
    "Prints the default model list, one name per line.\n";

const char* const kShowUsage =
    "usage: vqfe show BLOBFILE --kind K\n"
    "\n"
    "Decodes a result blob of kind K and prints it as JSON.\n";

std::string executableDir() {
    std::error_code ec;
    auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::string(".") : self.parent_path().string();
}

bool wantsHelp(const std::vector<std::string>& args) {
    for (const auto& arg : args) {
        if (arg == "--") break;  // what follows are names, not options
        if (arg == "--help" || arg == "-h") return true;
    }
    return false;
}

std::string kindList() {
    std::string list;
    for (const Kind& kind : vqfe::allKinds()) {
        list += "                    " + kind.name +
                (kind.number >= 0 ? " (" + std::to_string(kind.number) + ")" : " (" + kind.stringType + ")") + "\n";
    }
    return list;
}

std::string extractUsage() {
    const std::string kinds = kindList();
    std::vector<char> text(std::strlen(kExtractUsage) + kinds.size() + 1);
    std::snprintf(text.data(), text.size(), kExtractUsage, kinds.c_str());
    return text.data();
}

int extractCommand(const std::vector<std::string>& args) {
    const std::string usage = extractUsage();
    if (wantsHelp(args)) return std::cout << usage, 0;
    vqfe::ExtractOptions options;
    bool verbose = false;
    const std::string base = executableDir() + "/..";
    options.modelDir = base + "/models";
    options.frameworkConfig = base + "/share/vqfe/framework.json";
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        auto value = [&](std::string& into) {
            if (i + 1 >= args.size()) return false;
            into = args[++i];
            return true;
        };
        std::string text;
        if (arg == "--kind") {
            if (!value(text)) return usageError("--kind needs a value", usage.c_str());
            if (text == "all") {
                for (const Kind& kind : vqfe::kindsWithBlobs()) options.kinds.push_back(kind);
                continue;
            }
            auto kind = vqfe::parseKind(text);
            if (!kind) return usageError("unknown kind '" + text + "'", usage.c_str());
            options.kinds.push_back(*kind);
        } else if (arg == "--graph") {
            if (!value(options.graphFile)) return usageError("--graph needs a file", usage.c_str());
        } else if (arg == "--models") {
            if (!value(options.modelDir)) return usageError("--models needs a directory", usage.c_str());
        } else if (arg == "--framework-config") {
            if (!value(options.frameworkConfig)) return usageError("--framework-config needs a file", usage.c_str());
        } else if (arg == "--store") {
            if (!value(options.storePath)) return usageError("--store needs a file or URI", usage.c_str());
        } else if (arg == "--draw") {
            if (!value(options.drawDir)) return usageError("--draw needs a directory", usage.c_str());
        } else if (arg == "--jobs") {
            if (!value(text)) return usageError("--jobs needs a number", usage.c_str());
            char* end = nullptr;
            const long jobs = std::strtol(text.c_str(), &end, 10);
            if (*end != '\0' || jobs < 1 || jobs > 64) return usageError("--jobs takes 1 to 64", usage.c_str());
            options.jobs = static_cast<int>(jobs);
        } else if (arg == "--summary") {
            options.summary = true;
        } else if (arg == "--verbose") {
            verbose = true;
        } else if (arg == "--") {
            options.inputs.insert(options.inputs.end(), args.begin() + static_cast<long>(i) + 1, args.end());
            break;
        } else if (!arg.empty() && arg[0] == '-') {
            return usageError("unknown option " + arg, usage.c_str());
        } else {
            options.inputs.push_back(arg);
        }
    }
    if (options.inputs.empty()) return usageError("no images given", usage.c_str());
    if (options.kinds.empty()) options.kinds.push_back(*vqfe::parseKind("face"));
    vqfe::FdOutput json(verbose);
    return vqfe::runExtract(options, json.stream(), std::cerr);
}

int scoreCommand(const std::vector<std::string>& args) {
    if (wantsHelp(args)) return std::cout << kScoreUsage, 0;
    std::string model;
    std::vector<std::string> images;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--model") {
            if (i + 1 >= args.size()) return usageError("--model needs a file", kScoreUsage);
            model = args[++i];
        } else {
            images.push_back(args[i]);
        }
    }
    if (images.empty()) return usageError("no images given", kScoreUsage);
    VQFeature::ImageScorer scorer(model, 0);
    if (int code = scorer.init(); code != 0) {
        std::cerr << "vqfe score: no quality model could be loaded (code " << code << ")\n";
        return 1;
    }
    int status = 0;
    for (const auto& image : images) {
        std::error_code ec;
        if (!std::filesystem::is_regular_file(image, ec)) {
            std::cerr << "vqfe score: " << image << ": " << (std::filesystem::exists(image, ec) ? "not a file" : "no such file")
                      << "\n";
            status = 1;
            continue;
        }
        if (int code = scorer.scoreImage(image, 0, 0); code != 0) {
            std::cerr << "vqfe score: " << image << ": cannot score ("
                      << VQFeature::VantorSystem::code2Error(static_cast<Vantor::VantorErrorCode>(code)) << ", code " << code
                      << (code == 8 ? ": not a JPEG or PNG image it can read" : "") << ")\n";
            status = 1;
            continue;
        }
        std::printf("%.4f  %s\n", scorer.getScore(), image.c_str());
    }
    scorer.destroy();
    return status;
}

int graphCommand(const std::vector<std::string>& args) {
    if (wantsHelp(args)) return std::cout << kGraphUsage, 0;
    if (args.size() != 1) return usageError("graph takes one kind", kGraphUsage);
    auto kind = vqfe::parseKind(args[0]);
    char* end = nullptr;
    std::strtol(args[0].c_str(), &end, 10);
    if (!kind && (args[0].empty() || *end != '\0')) return usageError("unknown kind '" + args[0] + "'", kGraphUsage);
    const int number = kind ? kind->templateKind : std::atoi(args[0].c_str());
    const std::string graph = VQFeature::CoverUtil::getAlgorithmConf(static_cast<Vantor::AlgorithmType>(number));
    if (graph.empty()) {
        std::cerr << "vqfe graph: no built-in graph for kind " << args[0] << "\n";
        return 1;
    }
    std::cout << graph << "\n";
    return 0;
}

int modelsCommand(const std::vector<std::string>& args) {
    if (wantsHelp(args)) return std::cout << kModelsUsage, 0;
    if (!args.empty()) return usageError("models takes no arguments", kModelsUsage);
    std::string list = VQFeature::CoverUtil::getDefaultModels();
    for (char& c : list) {
        if (c == ',') c = '\n';
    }
    std::cout << list << "\n";
    return 0;
}

int showCommand(const std::vector<std::string>& args) {
    if (wantsHelp(args)) return std::cout << kShowUsage, 0;
    std::string file;
    std::optional<Kind> kind;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--kind") {
            if (i + 1 >= args.size()) return usageError("--kind needs a value", kShowUsage);
            kind = vqfe::parseKind(args[++i]);
            if (!kind) return usageError("unknown kind '" + args[i] + "'", kShowUsage);
        } else {
            file = args[i];
        }
    }
    if (file.empty() || !kind) return usageError("show needs a blob file and --kind", kShowUsage);
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::cerr << "vqfe show: cannot read " << file << "\n";
        return 1;
    }
    const std::string blob((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string error;
    const std::string json =
        VQFeature::blobToJson(kind->stringType.empty() ? kind->number : 121, blob.data(), blob.size(), &error);
    if (json.empty()) {
        std::cerr << "vqfe show: " << file << ": " << error << "\n";
        return 1;
    }
    std::cout << json << "\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return std::cerr << kUsage, 2;
    const std::string command = argv[1];
    const std::vector<std::string> args(argv + 2, argv + argc);
    if (command == "--help" || command == "-h" || command == "help") return std::cout << kUsage, 0;
    if (command == "extract") return extractCommand(args);
    if (command == "score") return scoreCommand(args);
    if (command == "graph") return graphCommand(args);
    if (command == "models") return modelsCommand(args);
    if (command == "show") return showCommand(args);
    if (vqfe::isLibraryCommand(command)) return vqfe::libraryCommand(command, args);
    if (vqfe::isWorkCommand(command)) return vqfe::workCommand(command, args, executableDir() + "/..");
    std::cerr << "vqfe: unknown command '" << command << "'\n" << kUsage;
    return 2;
}
