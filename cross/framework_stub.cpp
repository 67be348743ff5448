// The framework's SDK without an implementation, for builds that do not build the open
// desktop framework (cross builds: its OpenCV is not there for the target). On a device
// the vendor's libkorvid.so provides these symbols; here every algorithm system reports
// NOT_INIT and the quality functions fail, so the engine can be built and its tests that
// do not need a real framework can run.
#include <cstdlib>
#include <string>

#include "Vantor/ImageQuality.h"
#include "Vantor/VantorAlgorithmSystem.h"

namespace {

using namespace Vantor;

class AbsentSystem : public VantorAlgorithmSystem {
public:
    VantorErrorCode initFromFile(bool, const std::string&) override { return NOT_INIT; }
    VantorErrorCode initFromMemory(bool, char* data, int32_t) override {
        std::free(data);  // ownership passes whatever the outcome
        return NOT_INIT;
    }
    VantorErrorCode setResourceFinder(const VantorResourceFinderConfig&) override { return NOT_INIT; }
    VantorErrorCode loadGraph(const std::string&) override { return NOT_INIT; }
    void releaseGraph() override {}
    VantorErrorCode execute(const VantorAlgorithmInput&, AlgorithmType) override { return NOT_INIT; }
    void* getResult(const AlgorithmType&) override { return nullptr; }
    bool isInitialized() const override { return false; }
    bool hasGraph() const override { return false; }
    int32_t setIntParams(AlgorithmType, const std::unordered_map<std::string, long>&) override { return NOT_INIT; }
    int32_t setFloatParams(AlgorithmType, const std::unordered_map<std::string, float>&) override { return NOT_INIT; }
    int32_t setStringParams(AlgorithmType, const std::unordered_map<std::string, std::string>&) override {
        return NOT_INIT;
    }
    int32_t getNodeCount() const override { return 0; }
    bool producesType(AlgorithmType) const override { return false; }
    std::string getLastErrorMessage() const override { return "no framework in this build"; }
    void* getResultByName(const std::string&) override { return nullptr; }
    void clearResults() override {}
    uint64_t getExecuteCount() const override { return 0; }
    const char* getVersion() const override { return "absent"; }
    void uninit() override {}
};

}  // namespace

namespace Vantor {

VantorAlgorithmSystem* VantorAlgorithmFactory::CreateAlgorithmSystem() { return new AbsentSystem(); }

void VantorAlgorithmFactory::DestroyAlgorithmSystem(VantorAlgorithmSystem* system) { delete system; }

}  // namespace Vantor

extern "C" {

int vtx_ai_image_quality_enhancement_vida_create(void** handle, const vtx_ai_image_quality_enhancement_vida_param*) {
    if (handle != nullptr) *handle = nullptr;
    return 5;
}

int vtx_ai_image_quality_enhancement_vida_process(void*, const char*, int, int, float*) { return 8; }

int vtx_ai_image_quality_enhancement_vida_destory(void*) { return 0; }

}
