// Merging graph texts, so that several kinds run as one graph (one framework run per
// image). Works on the graph dialect as text: node and link objects are kept verbatim
// (hexadecimal numbers, trailing commas and all), only node names are rewritten.
#pragma once

#include <string>
#include <vector>

namespace vqfe {

// One graph holding the nodes and links of all graphs. A node that appears in several
// graphs with the same text and the same upstream nodes is kept once; any other node
// whose name is taken is renamed to <name>_<n> (n = the graph's position), with its links.
// Throws std::invalid_argument when a text is not a graph of the dialect.
std::string mergeGraphs(const std::vector<std::string>& graphs);

// The graph with node `from` renamed to `to` in its node and its links.
std::string renameNode(const std::string& graph, const std::string& from, const std::string& to);

}  // namespace vqfe
