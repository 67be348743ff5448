// Merging graph texts, so that several kinds run as one graph (one framework run per
// image). Works on the graph dialect as text: node and link objects are kept verbatim
// (hexadecimal numbers, trailing commas and all), only node names are rewritten.
#pragma once

#include <string>
#include <vector>

#include "Vantor/AlgorithmType.h"

namespace VQFeature {

/// One graph holding the nodes and links of all graphs. A node that appears in several
/// graphs with the same text and the same upstream nodes is kept once; any other node
/// whose name is taken is renamed to <name>_<n> (n = the graph's position), with its links.
/// Throws std::invalid_argument (IllegalArgumentException in Java) when a text is not a graph of the dialect.
std::string mergeGraphs(const std::vector<std::string>& graphs);

/// The graph with node `from` renamed to `to` in its node and its links.
std::string renameNode(const std::string& graph, const std::string& from, const std::string& to);

/// The graph that produces every given kind in one framework run: the built-in graph of
/// each enumerated kind (FaceAttribute through the expression graph, which yields it),
/// and for the output names ClassificationPostProcess_c300 and
/// ClassificationPostProcess_relation the graph of kind 121 or 130 with its
/// post-processor renamed to that name; graphs that come out equal are used once and
/// the rest merged (mergeGraphs). Throws std::invalid_argument (IllegalArgumentException in Java) naming the first kind or
/// output name no built-in graph produces (AllNodes, numbers outside the kind table,
/// ClassificationPostProcess_clip128, other names) and when nothing is asked for.
std::string severalKindGraph(const std::vector<Vantor::AlgorithmType>& types,
                             const std::vector<std::string>& stringTypes);

}  // namespace VQFeature
