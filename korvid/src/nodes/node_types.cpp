#include "nodes/node_types.h"

namespace kv {

const NodeType* findNodeType(const std::string& name) {
    static const std::vector<NodeType> all = [] {
        std::vector<NodeType> types;
        types.push_back(NodeType{"imageProducer", {}, Port::Image, nullptr});
        for (auto family : {faceNodeTypes, sceneNodeTypes, regionNodeTypes, nodeHubNodeTypes}) {
            for (NodeType& t : family()) types.push_back(std::move(t));
        }
        return types;
    }();
    for (const NodeType& t : all) {
        if (name == t.name) return &t;
    }
    return nullptr;
}

}  // namespace kv
