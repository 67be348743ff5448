// The node types of the open framework: the image producer and the families of analysis
// nodes, gathered in one table, built on first use (thread-safe) and never changed.
#pragma once

#include <string>
#include <vector>

#include "graph/node.h"

namespace kv {

// The node type of that name, or null.
const NodeType* findNodeType(const std::string& name);

// Node type tables of each family, gathered by findNodeType.
std::vector<NodeType> faceNodeTypes();
std::vector<NodeType> sceneNodeTypes();
std::vector<NodeType> regionNodeTypes();
std::vector<NodeType> nodeHubNodeTypes();

}  // namespace kv
