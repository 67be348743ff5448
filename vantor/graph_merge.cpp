#include "vantor/graph_merge.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "vantor/cover_util.h"

namespace VQFeature {
namespace {

using Member = std::pair<std::string, std::string>;  // key, raw value text

// Splits the body of an object or array (text between the brackets) at the commas of
// depth 0, outside strings; empty pieces (a trailing comma) are dropped.
std::vector<std::string> splitTopLevel(const std::string& body) {
    std::vector<std::string> pieces;
    std::string current;
    int depth = 0;
    bool inString = false;
    for (size_t i = 0; i < body.size(); ++i) {
        const char c = body[i];
        if (inString) {
            current += c;
            if (c == '\\' && i + 1 < body.size()) current += body[++i];
            else if (c == '"') inString = false;
            continue;
        }
        if (c == '"') inString = true;
        if (c == '{' || c == '[') ++depth;
        if (c == '}' || c == ']') --depth;
        if (c == ',' && depth == 0) {
            pieces.push_back(current);
            current.clear();
            continue;
        }
        current += c;
    }
    pieces.push_back(current);
    std::vector<std::string> trimmed;
    for (auto& piece : pieces) {
        const auto first = piece.find_first_not_of(" \t\r\n");
        if (first == std::string::npos) continue;
        const auto last = piece.find_last_not_of(" \t\r\n");
        trimmed.push_back(piece.substr(first, last - first + 1));
    }
    return trimmed;
}

std::string innerOf(const std::string& text, char open, char close) {
    const auto first = text.find_first_not_of(" \t\r\n");
    const auto last = text.find_last_not_of(" \t\r\n");
    if (first == std::string::npos || text[first] != open || text[last] != close) {
        throw std::invalid_argument(std::string("expected ") + open + "..." + close + " in graph text");
    }
    return text.substr(first + 1, last - first - 1);
}

std::vector<Member> members(const std::string& objectText) {
    std::vector<Member> result;
    for (const auto& piece : splitTopLevel(innerOf(objectText, '{', '}'))) {
        if (piece.empty() || piece[0] != '"') throw std::invalid_argument("malformed member in graph text");
        const auto close = piece.find('"', 1);
        const auto colon = piece.find(':', close);
        if (close == std::string::npos || colon == std::string::npos) {
            throw std::invalid_argument("malformed member in graph text");
        }
        const auto value = piece.find_first_not_of(" \t\r\n", colon + 1);
        result.emplace_back(piece.substr(1, close - 1), value == std::string::npos ? "" : piece.substr(value));
    }
    return result;
}

std::string objectText(const std::vector<Member>& fields) {
    std::string text = "{";
    for (size_t i = 0; i < fields.size(); ++i) {
        if (i) text += ',';
        text += '"' + fields[i].first + "\":" + fields[i].second;
    }
    return text + "}";
}

std::string quoted(const std::string& name) { return '"' + name + '"'; }

std::string unquoted(const std::string& value) {
    if (value.size() < 2 || value.front() != '"' || value.back() != '"') {
        throw std::invalid_argument("expected a string in graph text");
    }
    return value.substr(1, value.size() - 2);
}

const std::string& memberValue(const std::vector<Member>& fields, const std::string& key) {
    for (const auto& [name, value] : fields) {
        if (name == key) return value;
    }
    throw std::invalid_argument("graph text lacks \"" + key + "\"");
}

struct Graph {
    std::vector<std::vector<Member>> nodes;
    std::vector<std::vector<Member>> links;
};

Graph parseGraph(const std::string& text) {
    Graph graph;
    const auto top = members(text);
    for (const auto& node : splitTopLevel(innerOf(memberValue(top, "nodes"), '[', ']'))) {
        graph.nodes.push_back(members(node));
    }
    for (const auto& link : splitTopLevel(innerOf(memberValue(top, "links"), '[', ']'))) {
        graph.links.push_back(members(link));
    }
    return graph;
}

std::string graphText(const std::vector<std::string>& nodes, const std::vector<std::string>& links) {
    std::string text = R"({"version":"1.0","mode":2,"nodes":[)";
    for (size_t i = 0; i < nodes.size(); ++i) text += (i ? "," : "") + nodes[i];
    text += R"(],"links":[)";
    for (size_t i = 0; i < links.size(); ++i) text += (i ? "," : "") + links[i];
    return text + "]}";
}

void renameMember(std::vector<Member>& fields, const std::string& key, const std::string& from,
                  const std::string& to) {
    for (auto& [name, value] : fields) {
        if (name == key && unquoted(value) == from) value = quoted(to);
    }
}

}  // namespace

std::string mergeGraphs(const std::vector<std::string>& graphs) {
    std::vector<std::string> nodeNames, nodeTexts, linkTexts;
    for (size_t g = 0; g < graphs.size(); ++g) {
        Graph graph = parseGraph(graphs[g]);
        // A node already merged with the same text is shared, unless something upstream
        // of it in this graph is not shared (its inputs would differ): then it is renamed.
        std::vector<std::string> names;
        std::vector<bool> shared;
        for (const auto& node : graph.nodes) {
            names.push_back(unquoted(memberValue(node, "name")));
            const auto taken = std::find(nodeNames.begin(), nodeNames.end(), names.back());
            shared.push_back(taken != nodeNames.end() && nodeTexts[taken - nodeNames.begin()] == objectText(node));
        }
        for (bool changed = true; changed;) {
            changed = false;
            for (const auto& link : graph.links) {
                const std::string from = unquoted(memberValue(link, "fromNode"));
                const std::string to = unquoted(memberValue(link, "toNode"));
                for (size_t n = 0; n < names.size(); ++n) {
                    if (names[n] != to || !shared[n]) continue;
                    const auto upstream = std::find(names.begin(), names.end(), from);
                    if (upstream != names.end() && !shared[upstream - names.begin()]) shared[n] = false, changed = true;
                }
            }
        }
        std::vector<std::pair<std::string, std::string>> renames;
        for (size_t n = 0; n < graph.nodes.size(); ++n) {
            if (shared[n]) continue;
            std::string finalName = names[n];
            for (int k = static_cast<int>(g); std::find(nodeNames.begin(), nodeNames.end(), finalName) != nodeNames.end(); ++k) {
                finalName = names[n] + "_" + std::to_string(k);
            }
            if (finalName != names[n]) {
                renameMember(graph.nodes[n], "name", names[n], finalName);
                renames.emplace_back(names[n], finalName);
            }
            nodeNames.push_back(finalName);
            nodeTexts.push_back(objectText(graph.nodes[n]));
        }
        for (auto& link : graph.links) {
            for (const auto& [from, to] : renames) {
                renameMember(link, "fromNode", from, to);
                renameMember(link, "toNode", from, to);
            }
            const std::string text = objectText(link);
            if (std::find(linkTexts.begin(), linkTexts.end(), text) == linkTexts.end()) linkTexts.push_back(text);
        }
    }
    return graphText(nodeTexts, linkTexts);
}

std::string renameNode(const std::string& graph, const std::string& from, const std::string& to) {
    Graph parsed = parseGraph(graph);
    std::vector<std::string> nodes, links;
    for (auto& node : parsed.nodes) {
        renameMember(node, "name", from, to);
        nodes.push_back(objectText(node));
    }
    for (auto& link : parsed.links) {
        renameMember(link, "fromNode", from, to);
        renameMember(link, "toNode", from, to);
        links.push_back(objectText(link));
    }
    return graphText(nodes, links);
}

namespace {

// The built-in graph producing one enumerated kind, or "".
std::string graphProducing(Vantor::AlgorithmType type) {
    // Face attributes come out of the expression graph; kind 46 has no graph of its own.
    if (type == Vantor::AlgorithmType::FaceAttribute) type = Vantor::AlgorithmType::FaceExpression;
    return type == Vantor::AlgorithmType::AllNodes ? "" : CoverUtil::getAlgorithmConf(type);
}

// The built-in graph whose classification post-processor is named outputName, or "".
std::string graphProducing(const std::string& outputName) {
    Vantor::AlgorithmType source;
    if (outputName == kPostProcessorNames[1]) {
        source = Vantor::AlgorithmType::NHClassification;
    } else if (outputName == kPostProcessorNames[2]) {
        source = Vantor::AlgorithmType::RelationRecog;
    } else {
        return "";
    }
    return renameNode(CoverUtil::getAlgorithmConf(source), "ClassificationPostProcess", outputName);
}

void addOnce(std::vector<std::string>& graphs, std::string graph) {
    if (std::find(graphs.begin(), graphs.end(), graph) == graphs.end()) graphs.push_back(std::move(graph));
}

}  // namespace

std::string severalKindGraph(const std::vector<Vantor::AlgorithmType>& types,
                             const std::vector<std::string>& stringTypes) {
    std::vector<std::string> graphs;
    for (const auto type : types) {
        std::string graph = graphProducing(type);
        if (graph.empty()) {
            throw std::invalid_argument("no built-in graph produces algorithm kind " +
                                        std::to_string(static_cast<int>(type)));
        }
        addOnce(graphs, std::move(graph));
    }
    for (const auto& name : stringTypes) {
        std::string graph = graphProducing(name);
        if (graph.empty()) throw std::invalid_argument("no built-in graph produces the output \"" + name + "\"");
        addOnce(graphs, std::move(graph));
    }
    if (graphs.empty()) throw std::invalid_argument("no algorithm kind asked for");
    return graphs.size() == 1 ? graphs.front() : mergeGraphs(graphs);
}

}  // namespace VQFeature
