#include "graph/graph_wiring.h"

#include <map>

#include "model/error.h"

namespace kv {

namespace {

[[noreturn]] void refuse(const std::string& why) { throw Error(Vantor::INVALID_GRAPH, why); }

}  // namespace

std::vector<WiredNode> wireGraph(const GraphSpec& spec, const std::function<const NodeType*(const std::string&)>& typeOf) {
    std::map<std::string, size_t> index;
    std::vector<WiredNode> declared(spec.nodes.size());
    for (size_t i = 0; i < spec.nodes.size(); ++i) {
        const NodeSpec& n = spec.nodes[i];
        if (!index.emplace(n.name, i).second) refuse("duplicate node name \"" + n.name + "\"");
        const NodeType* type = typeOf(n.type);
        if (type == nullptr) refuse("unknown node type \"" + n.type + "\"");
        declared[i].declared = i;
        declared[i].type = type;
        declared[i].slotSources.assign(type->inputs.size(), -1);
    }
    auto name = [&spec](const WiredNode& n) -> const std::string& { return spec.nodes[n.declared].name; };
    for (const LinkSpec& l : spec.links) {
        auto from = index.find(l.fromNode), to = index.find(l.toNode);
        if (from == index.end() || to == index.end()) {
            refuse("link between \"" + l.fromNode + "\" and \"" + l.toNode + "\" names a missing node");
        }
        WiredNode& src = declared[from->second];
        WiredNode& dst = declared[to->second];
        if (l.fromIndex != 0 || src.type->output == Port::None) {
            refuse("node \"" + name(src) + "\" has no output " + std::to_string(l.fromIndex));
        }
        if (l.toIndex < 0 || l.toIndex >= static_cast<int64_t>(dst.slotSources.size())) {
            refuse("node \"" + name(dst) + "\" has no input slot " + std::to_string(l.toIndex));
        }
        const size_t slot = static_cast<size_t>(l.toIndex);
        if (dst.slotSources[slot] != -1) refuse("input slot " + std::to_string(slot) + " of \"" + name(dst) + "\" is linked twice");
        if (dst.type->inputs[slot].accepts != src.type->output) {
            refuse("\"" + name(src) + "\" cannot feed slot " + std::to_string(slot) + " of \"" + name(dst) + "\"");
        }
        dst.slotSources[slot] = static_cast<int>(from->second);
    }
    for (const WiredNode& n : declared) {
        for (size_t s = 0; s < n.slotSources.size(); ++s) {
            if (n.type->inputs[s].required && n.slotSources[s] == -1) {
                refuse("input slot " + std::to_string(s) + " of \"" + name(n) + "\" is not linked");
            }
        }
    }

    // Kahn's order, one sweep over the declarations per round.
    std::vector<size_t> order;
    std::vector<bool> placed(declared.size(), false);
    while (order.size() < declared.size()) {
        bool progress = false;
        for (size_t i = 0; i < declared.size(); ++i) {
            if (placed[i]) continue;
            bool ready = true;
            for (int src : declared[i].slotSources) ready = ready && (src == -1 || placed[static_cast<size_t>(src)]);
            if (!ready) continue;
            placed[i] = true;
            order.push_back(i);
            progress = true;
        }
        if (!progress) refuse("graph has a cycle");
    }
    std::vector<int> position(declared.size());
    for (size_t k = 0; k < order.size(); ++k) position[order[k]] = static_cast<int>(k);
    std::vector<WiredNode> wired;
    wired.reserve(declared.size());
    for (size_t k : order) {
        WiredNode& n = declared[k];
        for (int& src : n.slotSources) {
            if (src != -1) {
                n.upstreamTypes.push_back(declared[static_cast<size_t>(src)].type->name);
                src = position[static_cast<size_t>(src)];
            }
        }
        wired.push_back(std::move(n));
    }
    return wired;
}

}  // namespace kv
