// Fuzz target: the bytes of a model file, loaded by the open framework twice: as the face
// network ("qm_face", through a graph with one face node) and as the pet model ("qm_petface",
// a bundle of a cascade and a network, or a bare cascade, through a graph with one pet node).
// Checked for each load: it gives NO_ERROR or INVALID_MODEL, nothing else; a failure says
// why; the model block comes back after releaseGraph.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Vantor/Vantor.h"
#include "open_framework.h"

using namespace Vantor;

namespace {

class OneModelFinder : public VantorResourceFinder {
public:
    bool findResource(VantorAlgorithmModel& model) override {
        auto* block = new uint8_t[bytes.size() + 1];
        if (!bytes.empty()) std::memcpy(block, bytes.data(), bytes.size());
        model.data = block;
        model.size = bytes.size();
        ++outstanding;
        return true;
    }
    bool releaseResource(VantorAlgorithmModel& model) override {
        if (model.data != nullptr) --outstanding;
        return VantorResourceFinder::releaseResource(model);
    }
    std::string bytes;
    int outstanding = 0;
};

struct Framework {
    Framework() : system(openFramework(finder)) {}
    OneModelFinder finder;
    VantorAlgorithmSystem* system;
};

constexpr const char* kFaceGraph =
    R"({"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"face_0","type":"face","config":{"keymaps":{"stringParam":{"face_base_model_key":"qm_face"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0}]})";

constexpr const char* kPetGraph =
    R"({"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"pet_0","type":"face_pet_detect","config":{"keyMaps":{"intParam":{"face_pet_detect_config_type":3},"stringParam":{"face_pet_detect_model_key":"qm_petface"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"pet_0","toIndex":0}]})";

void loadOnce(Framework* framework, const char* graph) {
    const VantorErrorCode code = framework->system->loadGraph(graph);
    if (code != NO_ERROR && code != INVALID_MODEL) {
        std::fprintf(stderr, "load gave %d: %s\n", static_cast<int>(code), framework->system->getLastErrorMessage().c_str());
        std::abort();
    }
    if (code != NO_ERROR && framework->system->getLastErrorMessage().empty()) {
        std::fprintf(stderr, "a refused network without a message\n");
        std::abort();
    }
    framework->system->releaseGraph();
    if (framework->finder.outstanding != 0) {
        std::fprintf(stderr, "model block not returned\n");
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Framework* framework = new Framework();  // one system for the whole run, never freed
    framework->finder.bytes.assign(reinterpret_cast<const char*>(data), size);
    loadOnce(framework, kFaceGraph);
    loadOnce(framework, kPetGraph);
    return 0;
}
