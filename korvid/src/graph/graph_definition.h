// kv::GraphSpec: a processing graph as written in its JSON text, before any node is
// built. parseGraphSpec checks the text's shape (names, types as text, parameter maps,
// links by name); whether node types exist, slots are valid and the graph is acyclic is
// checked when the graph is wired (graph_wiring.h), where the node types are known.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kv {

// The three parameter maps of a node ("intParam", "floatParam", "stringParam").
struct NodeParams {
    std::map<std::string, long> ints;
    std::map<std::string, float> floats;
    std::map<std::string, std::string> strings;

    long intOr(const std::string& key, long fallback) const;
    // Float parameters may be written as integers and are looked up in both maps.
    float floatOr(const std::string& key, float fallback) const;
    std::string stringOr(const std::string& key, const std::string& fallback) const;
};

struct NodeSpec {
    std::string name;
    std::string type;
    NodeParams params;
};

struct LinkSpec {
    std::string fromNode;
    int64_t fromIndex = 0;
    std::string toNode;
    int64_t toIndex = 0;
};

struct GraphSpec {
    std::vector<NodeSpec> nodes;
    std::vector<LinkSpec> links;
};

// Parses graph text. Throws Error(INVALID_GRAPH) with a description of the problem when the
// text is malformed or a node or link lacks a required field.
GraphSpec parseGraphSpec(const std::string& text);

// Whether a string parameter names a model: "model_name", or a key ending in
// "_model_key" or "_model_dir".
bool isModelParameter(const std::string& key);

}  // namespace kv
