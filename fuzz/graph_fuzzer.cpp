// Fuzz target: graph text as the app ships it in its assets, loaded by the open
// framework (JSON dialect, graph shape, node types, links, cycles, models, parameters).
// One initialised system is reused. Models are served from memory: the parameter files
// of korvid/models, the built networks (each read once: the system keeps them by content)
// and, for the cascade model, a one-stage cascade (real cascades take tens of milliseconds
// to read). Checked on every input: the code is NO_ERROR exactly
// when a graph is loaded, a failure says why, and after releaseGraph every model block
// the finder handed out has come back.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "Vantor/Vantor.h"
#include "open_framework.h"

namespace {

using namespace Vantor;

class MemoryFinder : public VantorResourceFinder {
public:
    MemoryFinder() {
        for (const auto& entry : std::filesystem::directory_iterator(VQFE_FUZZ_MODELS)) {
            if (entry.path().extension() == ".yml") models_[entry.path().stem().string()] = readFile(entry.path().string());
        }
        for (const char* name : {"qm_face", "qm_face_extra", "qm_face_attribute_exp", "qm_skeleton"}) {
            models_[name] = readFile(std::string(VQFE_FUZZ_NETWORKS) + "/" + name + ".model");
        }
        models_["qm_petface"] = readFile(VQFE_FUZZ_TINY_CASCADE);
    }

    bool findResource(VantorAlgorithmModel& model) override {
        auto it = models_.find(model.name);
        if (it == models_.end()) return false;
        auto* block = new uint8_t[it->second.size() + 1];
        std::memcpy(block, it->second.data(), it->second.size());
        block[it->second.size()] = 0;
        model.data = block;
        model.size = it->second.size();
        ++outstanding;
        return true;
    }

    bool releaseResource(VantorAlgorithmModel& model) override {
        if (model.data != nullptr) --outstanding;
        return VantorResourceFinder::releaseResource(model);
    }

    long outstanding = 0;

private:
    std::map<std::string, std::string> models_;
};

struct Framework {
    Framework() : system(openFramework(finder)) {
        // The served models must stay loadable, or every graph would stop at its models.
        const char* faceGraph =
            R"({"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"face_0","type":"face","config":{"keymaps":{"stringParam":{"face_base_model_key":"qm_face","face_extra_model_key":"qm_face_extra"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0}]})";
        if (system->loadGraph(faceGraph) != NO_ERROR) {
            std::fprintf(stderr, "the served models do not load: %s\n", system->getLastErrorMessage().c_str());
            std::abort();
        }
        system->releaseGraph();
    }
    MemoryFinder finder;
    VantorAlgorithmSystem* system;
};

[[noreturn]] void fail(const char* what, const std::string& detail) {
    std::fprintf(stderr, "graph: %s (%s)\n", what, detail.c_str());
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Framework* framework = new Framework();  // lives for the process
    VantorAlgorithmSystem* system = framework->system;
    const std::string text(reinterpret_cast<const char*>(data), size);
    VantorErrorCode code = system->loadGraph(text);
    if ((code == NO_ERROR) != system->hasGraph()) fail("load code and graph state disagree", std::to_string(code));
    if (code != NO_ERROR && code != INVALID_GRAPH && code != INVALID_MODEL && code != INVALID_NODE) {
        fail("unexpected load code", std::to_string(code) + " " + system->getLastErrorMessage());
    }
    if (code != NO_ERROR && system->getLastErrorMessage().empty()) fail("failure without a message", std::to_string(code));
    if (code == NO_ERROR && system->getNodeCount() <= 0) fail("a loaded graph without nodes", "");
    system->releaseGraph();
    if (system->hasGraph() || framework->finder.outstanding != 0) {
        fail("models not returned after releaseGraph", std::to_string(framework->finder.outstanding));
    }
    return 0;
}
