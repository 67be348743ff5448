// Algorithm kinds as the command line names them: by number ("4") or by name ("face").
// String kinds (classification output nodes) have names too ("c300", "relation-output").
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vqfe {

struct Kind {
    int number;               // the algorithm kind; -1 for a string kind
    std::string name;         // command-line name
    std::string stringType;   // output-node name of a string kind, else ""
    int templateKind;         // the built-in graph that produces it
};

// The kinds the tool knows, in display order.
const std::vector<Kind>& allKinds();

// "4", "face", "c300", ...; nullopt when unknown.
std::optional<Kind> parseKind(const std::string& text);

// The kinds that produce a result blob (every kind except 9).
std::vector<Kind> kindsWithBlobs();

}  // namespace vqfe
