// Fuzz target: the bytes of a model file, loaded by the open framework as one of the models
// that hold networks. The first byte picks the model and a graph that loads it (kSlots); the
// rest is the model's content. Every other model the graph names is the real one, read once
// from the built model directory (its networks stay in the system's cache, so a load costs
// little besides the fuzzed model). Checked for each load: it gives NO_ERROR or
// INVALID_MODEL, nothing else; a failure says why; every model block comes back after
// releaseGraph.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "Vantor/Vantor.h"
#include "network_slots.h"
#include "open_framework.h"

using namespace Vantor;

namespace {

// Serves the fuzzed bytes under the slot's model name and the real model under every name of
// realModels; any other name gets the fuzzed bytes too.
class SlotFinder : public VantorResourceFinder {
public:
    SlotFinder() {
        for (const char* name : vqfe_fuzz::kRealModels) real_[name] = readFile(std::string(VQFE_FUZZ_NETWORKS) + "/" + name + ".model");
    }
    bool findResource(VantorAlgorithmModel& model) override {
        auto it = real_.find(model.name);
        const std::string& content = model.name != fuzzedName && it != real_.end() ? it->second : bytes;
        auto* block = new uint8_t[content.size() + 1];
        if (!content.empty()) std::memcpy(block, content.data(), content.size());
        model.data = block;
        model.size = content.size();
        ++outstanding;
        return true;
    }
    bool releaseResource(VantorAlgorithmModel& model) override {
        if (model.data != nullptr) --outstanding;
        return VantorResourceFinder::releaseResource(model);
    }
    std::string fuzzedName;
    std::string bytes;
    int outstanding = 0;

private:
    std::map<std::string, std::string> real_;
};

struct Framework {
    Framework() : system(openFramework(finder)) {}
    SlotFinder finder;
    VantorAlgorithmSystem* system;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Framework* framework = new Framework();  // one system for the whole run, never freed
    if (size == 0) return 0;
    const vqfe_fuzz::NetworkSlot& slot = vqfe_fuzz::kSlots[data[0] % vqfe_fuzz::kSlotCount];
    framework->finder.fuzzedName = slot.model;
    framework->finder.bytes.assign(reinterpret_cast<const char*>(data + 1), size - 1);
    VantorAlgorithmSystem* system = framework->system;
    const VantorErrorCode code = system->loadGraph(slot.graph);
    if (code != NO_ERROR && code != INVALID_MODEL) {
        std::fprintf(stderr, "%s: load gave %d: %s\n", slot.model, static_cast<int>(code), system->getLastErrorMessage().c_str());
        std::abort();
    }
    if (code != NO_ERROR && system->getLastErrorMessage().empty()) {
        std::fprintf(stderr, "%s: a refused model without a message\n", slot.model);
        std::abort();
    }
    system->releaseGraph();
    if (framework->finder.outstanding != 0) {
        std::fprintf(stderr, "%s: model block not returned\n", slot.model);
        std::abort();
    }
    return 0;
}
