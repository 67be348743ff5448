// Wiring a graph definition: each node's type looked up, each link checked against the
// slots of the nodes it joins, and the nodes put in dependency order (every node after the
// nodes feeding it; declaration order among nodes that are ready together). Pure functions
// of their arguments, thread-safe.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "graph/graph_definition.h"
#include "graph/node.h"

namespace kv {

struct WiredNode {
    size_t declared = 0;                     // index in the definition's nodes
    const NodeType* type = nullptr;
    std::vector<int> slotSources;            // position in the wired order of the node feeding each slot, -1 if none
    std::vector<std::string> upstreamTypes;  // types of the nodes feeding the linked slots, in slot order
};

// The definition's nodes in dependency order. typeOf gives the node type of a name (null for
// an unknown one). Throws Error(INVALID_GRAPH) on a duplicate name, an unknown type, a link
// naming a missing node, output or slot, a slot linked twice or to an output of another kind,
// a required slot left unlinked, or a cycle.
std::vector<WiredNode> wireGraph(const GraphSpec& spec, const std::function<const NodeType*(const std::string&)>& typeOf);

}  // namespace kv
