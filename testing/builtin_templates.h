// The graph templates the library ships, as test fixtures of the open framework: every
// built-in template must load and run on it. The texts are the library's own (CoverUtil,
// VantorGraph), so a template is written once.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "vantor/cover_util.h"
#include "vantor/graph_texts.h"

namespace kv::testing {

// (kind, graph text) of every built-in template, in kind order.
inline const std::vector<std::pair<int, const char*>>& builtinTemplates() {
    static const std::vector<std::pair<int, std::string>> texts = [] {
        std::vector<std::pair<int, std::string>> all;
        for (int kind = 0; kind <= 255; ++kind) {
            std::string text = VQFeature::CoverUtil::getAlgorithmConf(static_cast<Vantor::AlgorithmType>(kind));
            if (!text.empty()) all.emplace_back(kind, std::move(text));
        }
        return all;
    }();
    static const std::vector<std::pair<int, const char*>> templates = [] {
        std::vector<std::pair<int, const char*>> views;
        for (const auto& [kind, text] : texts) views.emplace_back(kind, text.c_str());
        return views;
    }();
    return templates;
}

inline const char* builtinTemplate(int kind) {
    for (const auto& [k, text] : builtinTemplates()) {
        if (k == kind) return text;
    }
    return "";
}

// Two further named graphs: one names a model outside the default list, the other
// carries a trailing comma.
inline const char* const kGradingGraph = VQFeature::GraphTexts::kGradingGraph;
inline const char* const kRecognitionGraph = VQFeature::GraphTexts::kRecognitionGraph;

}  // namespace kv::testing
