// `vqfe extract`: runs algorithm kinds over photos through the Extractor and prints one
// JSON object per image and kind.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "library/kinds.h"

namespace vqfe {

struct ExtractOptions {
    std::vector<Kind> kinds;          // one kind: a single-kind request; several: one graph
    std::string graphFile;            // replaces the built-in graph(s) when set
    std::string modelDir;
    std::string frameworkConfig;
    std::string storePath;            // SqliteCache used as both caches when set
    std::string drawDir;              // annotated PNGs when set
    int jobs = 1;                     // extractors side by side, each with its own framework
    bool summary = false;             // human summary on standard error at the end
    std::vector<std::string> inputs;  // files and directories
};

// The graph text of a request over kinds: the built-in graph of each, merged into one
// when they differ (VQFeature::severalKindGraph), or the file graphFile when given. Throws
// std::runtime_error when the graph file cannot be read, std::invalid_argument when no
// built-in graph produces a kind.
std::string requestGraph(const std::vector<Kind>& kinds, const std::string& graphFile = "");

// Returns the process exit code: 0 when every image was processed (per-image failures
// included, they are reported in the output), 1 when nothing could run, 2 for usage,
// 130 when SIGINT or SIGTERM stopped the run after the images in hand (Interruption).
int runExtract(const ExtractOptions& options, std::ostream& out, std::ostream& err);

}  // namespace vqfe
