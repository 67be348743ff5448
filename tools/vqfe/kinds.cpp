#include "tools/vqfe/kinds.h"

#include <cctype>

#include "extractor/algorithm_types.h"

namespace vqfe {

const std::vector<Kind>& allKinds() {
    static const std::vector<Kind> kinds = {
        {4, "face", "", 4},
        {7, "skeleton", "", 7},
        {8, "face-verify", "", 8},
        {9, "expression", "", 9},
        {10, "face-cluster", "", 10},
        {12, "matting", "", 12},
        {25, "scene", "", 25},
        {29, "similarity", "", 29},
        {30, "aesthetics", "", 30},
        {33, "sensitive", "", 33},
        {46, "face-attribute", "", 9},
        {58, "scene-v3", "", 58},
        {60, "saliency", "", 60},
        {71, "pet-matting", "", 71},
        {95, "pet-face", "", 95},
        {121, "classification", "", 121},
        {130, "relation", "", 130},
        {-1, "c300", VQFeature::AlgorithmTypeC300, 121},
        {-1, "relation-output", VQFeature::AlgorithmTypeRelation, 130},
    };
    return kinds;
}

std::optional<Kind> parseKind(const std::string& text) {
    if (text.empty()) return std::nullopt;
    bool numeric = true;
    for (size_t i = 0; i < text.size(); ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i])) && !(i == 0 && text[i] == '-')) numeric = false;
    }
    for (const Kind& kind : allKinds()) {
        if (numeric && kind.number >= 0 && text == std::to_string(kind.number)) return kind;
        if (!numeric && (text == kind.name || (!kind.stringType.empty() && text == kind.stringType))) return kind;
    }
    return std::nullopt;
}

std::vector<Kind> kindsWithBlobs() {
    std::vector<Kind> kinds;
    for (const Kind& kind : allKinds()) {
        if (kind.number != 9) kinds.push_back(kind);
    }
    return kinds;
}

}  // namespace vqfe
