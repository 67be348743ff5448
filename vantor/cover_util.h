/// CoverUtil: static helpers offered to the host: the built-in graph per algorithm kind,
/// the default model list, and blob memory helpers.
#pragma once

#include <string>

#include "Vantor/AlgorithmType.h"

namespace VQFeature {

class CoverUtil {
public:
    /// The built-in graph of the kind, or "" for a kind without one.
    static std::string getAlgorithmConf(const Vantor::AlgorithmType& type);
    /// The default model names, comma-separated.
    static std::string getDefaultModels();
    /// A new zero-filled byte array (array new) holding a copy of size bytes of data.
    static char* getMemoryAddress(char* data, unsigned long size);
    /// Releases a blob with free(); size is ignored.
    static void releaseObject(char* block, unsigned long size);
};

/// Two named graphs kept for hosts; nothing in the library runs them.
class VantorGraph {
public:
    static std::string gradingGraph();
    static std::string recognitionGraph();
};

/// Output-node names of the classification post-processors, in this order:
/// clip128, c300, relation.
extern const char* const kPostProcessorNames[3];

}  // namespace VQFeature
