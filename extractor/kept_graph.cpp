#include "extractor/kept_graph.h"

namespace VQFeature {

std::string KeptGraph::requestText(const std::string& graph) {
    if (holds(graph)) return "";
    held_.reset();  // the framework releases what it holds before it loads graph
    return graph;
}

std::map<std::string, std::string> KeptGraph::keyAliases(const std::vector<std::string>& keptGraphKeys,
                                                         const std::vector<std::string>& fullGraphKeys) {
    std::map<std::string, std::string> aliases;
    for (size_t k = 0; k < keptGraphKeys.size() && k < fullGraphKeys.size(); ++k) {
        aliases.emplace(keptGraphKeys[k], fullGraphKeys[k]);
    }
    return aliases;
}

}  // namespace VQFeature
