#include "graph/graph_definition.h"

#include <cmath>
#include <limits>

#include "graph/json.h"
#include "model/error.h"

namespace kv {

long NodeParams::intOr(const std::string& key, long fallback) const {
    auto it = ints.find(key);
    return it == ints.end() ? fallback : it->second;
}

float NodeParams::floatOr(const std::string& key, float fallback) const {
    auto it = floats.find(key);
    if (it != floats.end()) return it->second;
    auto jt = ints.find(key);
    return jt == ints.end() ? fallback : static_cast<float>(jt->second);
}

std::string NodeParams::stringOr(const std::string& key, const std::string& fallback) const {
    auto it = strings.find(key);
    return it == strings.end() ? fallback : it->second;
}

bool isModelParameter(const std::string& key) {
    auto endsWith = [&key](const std::string& suffix) {
        return key.size() >= suffix.size() && key.compare(key.size() - suffix.size(), suffix.size(), suffix) == 0;
    };
    return key == "model_name" || endsWith("_model_key") || endsWith("_model_dir");
}

namespace {

[[noreturn]] void refuse(const std::string& why) { throw Error(Vantor::INVALID_GRAPH, why); }

void readParams(const JsonValue& config, const std::string& node, NodeParams& out) {
    if (!config.isObject()) refuse("config of node \"" + node + "\" is not an object");
    // Both spellings occur in real graphs; one parameter object per node.
    const JsonValue* maps = config.find("keymaps");
    if (maps == nullptr) maps = config.find("keyMaps");
    if (maps == nullptr) return;
    if (!maps->isObject()) refuse("parameters of node \"" + node + "\" are not an object");
    for (const auto& [kind, map] : maps->members) {
        if (kind != "intParam" && kind != "floatParam" && kind != "stringParam") continue;
        if (!map.isObject()) refuse(kind + " of node \"" + node + "\" is not an object");
        for (const auto& [key, value] : map.members) {
            if (kind == "intParam") {
                if (!value.isInt()) refuse("intParam \"" + key + "\" of node \"" + node + "\" is not an integer");
                out.ints[key] = static_cast<long>(value.integer);
            } else if (kind == "floatParam") {
                if (!value.isNumber() || std::abs(value.number()) > std::numeric_limits<float>::max()) {
                    refuse("floatParam \"" + key + "\" of node \"" + node + "\" is not a float");
                }
                out.floats[key] = static_cast<float>(value.number());
            } else {
                if (!value.isString()) refuse("stringParam \"" + key + "\" of node \"" + node + "\" is not a string");
                out.strings[key] = value.text;
            }
        }
    }
}

bool readText(const JsonValue& object, const char* key, std::string& out) {
    const JsonValue* v = object.find(key);
    if (v == nullptr || !v->isString() || v->text.empty()) return false;
    out = v->text;
    return true;
}

bool readIndex(const JsonValue& object, const char* key, int64_t& out) {
    const JsonValue* v = object.find(key);
    if (v == nullptr || !v->isInt()) return false;
    out = v->integer;
    return true;
}

}  // namespace

GraphSpec parseGraphSpec(const std::string& text) {
    GraphSpec out;
    const JsonValue root = parseJson(text.data(), text.size(), Vantor::INVALID_GRAPH, "graph text");
    if (!root.isObject()) refuse("graph text is not an object");
    const JsonValue* nodes = root.find("nodes");
    if (nodes == nullptr || !nodes->isArray() || nodes->items.empty()) refuse("graph has no \"nodes\" array");
    for (const JsonValue& n : nodes->items) {
        NodeSpec spec;
        if (!n.isObject() || !readText(n, "name", spec.name) || !readText(n, "type", spec.type)) {
            refuse("a node lacks its \"name\" or \"type\"");
        }
        if (const JsonValue* config = n.find("config")) readParams(*config, spec.name, spec.params);
        out.nodes.push_back(std::move(spec));
    }
    const JsonValue* links = root.find("links");
    if (links != nullptr) {
        if (!links->isArray()) refuse("\"links\" is not an array");
        for (const JsonValue& l : links->items) {
            LinkSpec spec;
            if (!l.isObject() || !readText(l, "fromNode", spec.fromNode) || !readText(l, "toNode", spec.toNode) ||
                !readIndex(l, "fromIndex", spec.fromIndex) || !readIndex(l, "toIndex", spec.toIndex)) {
                refuse("a link lacks \"fromNode\", \"fromIndex\", \"toNode\" or \"toIndex\"");
            }
            out.links.push_back(std::move(spec));
        }
    }
    return out;
}

}  // namespace kv
