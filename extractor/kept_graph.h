/// KeptGraph: which graph text a request carries, so that the framework loads a graph
/// once and keeps it.
///
/// The framework releases and reloads its graph (reading every model file) whenever a
/// request carries graph text, and keeps the graph it holds for a request that carries
/// none. So requests for a graph carry its text until one of them has run, and none
/// after; a request for another graph carries that graph's text, and then no graph is
/// known to be held until a request for it has run. Only a run proves a load: after a
/// load that failed (which leaves no graph) the next request carries the text again.
///
/// The results of a request without graph text have the algorithm keys of the empty
/// text; keyAliases pairs them with the keys the full text gives, under which they are
/// filed. Not thread-safe: the caller sends one request at a time.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace VQFeature {

class KeptGraph {
public:
    /// No graph held: the first request for any graph carries its text.
    KeptGraph() = default;
    /// The graph text the next request for graph carries: empty when the framework holds
    /// graph, else graph itself (the framework then holds no known graph until ran()).
    /// REQUIRES: that request is sent.
    std::string requestText(const std::string& graph);
    /// A request for graph has run (it produced a result): the framework holds graph.
    void ran(const std::string& graph) { held_ = graph; }
    /// Whether the framework holds graph, as far as the requests so far show.
    bool holds(const std::string& graph) const { return held_ && *held_ == graph; }

    /// The algorithm keys of a request without graph text -> the keys of the same request
    /// carrying it, pairwise (keptGraphKeys[i] -> fullGraphKeys[i]).
    static std::map<std::string, std::string> keyAliases(const std::vector<std::string>& keptGraphKeys,
                                                         const std::vector<std::string>& fullGraphKeys);

private:
    std::optional<std::string> held_;
};

}  // namespace VQFeature
