#include "library/kinds.h"

#include <algorithm>
#include <cctype>

#include "Vantor/AlgorithmType.h"
#include "extractor/algorithm_types.h"

namespace vqfe {

namespace {

constexpr int kExpression = static_cast<int>(Vantor::AlgorithmType::FaceExpression);

std::vector<Kind> makeKinds() {
    std::vector<Kind> kinds = {
#define VQFE_RESULT_KIND(kind, number, cliName, Buffer, Message, name) {number, cliName, "", number},
#include "encoding/result_kinds.def"
        {kExpression, "expression", "", kExpression},
    };
    // Face attributes come out of the expression graph; kind 46 has no graph of its own.
    for (Kind& kind : kinds) {
        if (kind.number == static_cast<int>(Vantor::AlgorithmType::FaceAttribute)) kind.templateKind = kExpression;
    }
    std::sort(kinds.begin(), kinds.end(), [](const Kind& a, const Kind& b) { return a.number < b.number; });
    kinds.push_back({-1, "c300", VQFeature::AlgorithmTypeC300, static_cast<int>(Vantor::AlgorithmType::NHClassification)});
    kinds.push_back({-1, "relation-output", VQFeature::AlgorithmTypeRelation,
                     static_cast<int>(Vantor::AlgorithmType::RelationRecog)});
    return kinds;
}

}  // namespace

const std::vector<Kind>& allKinds() {
    static const std::vector<Kind> kinds = makeKinds();
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
        if (kind.number != kExpression) kinds.push_back(kind);
    }
    return kinds;
}

}  // namespace vqfe
