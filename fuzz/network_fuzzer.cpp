// Fuzz target: the bytes of a model file, loaded by the open framework as one of the models
// that hold networks. The first byte picks the model and a graph that loads it (kSlots); the
// rest is the model's content. Every other model the graph names is the real one, read once
// from the built model directory (its networks stay in the system's cache, so a load costs
// little besides the fuzzed model). Checked for each load: it gives NO_ERROR or
// INVALID_MODEL, nothing else; a failure says why; every model block comes back after
// releaseGraph. Built with VQFE_FUZZ_NAMED_MODELS it is fuzz_named_network: its slots'
// models are named by a bundle (a reference), so it runs each loaded graph on a photo with
// a person, which fetches the model: the run must give NO_ERROR whatever the bytes (a
// damaged named model only leaves the person unconfirmed).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "Vantor/Vantor.h"
#include "network_slots.h"
#include "open_framework.h"

using namespace Vantor;

namespace {

#ifdef VQFE_FUZZ_NAMED_MODELS
constexpr const vqfe_fuzz::NetworkSlot* kTargetSlots = vqfe_fuzz::kNamedSlots;
constexpr size_t kTargetSlotCount = vqfe_fuzz::kNamedSlotCount;
constexpr bool kRuns = true;
#else
constexpr const vqfe_fuzz::NetworkSlot* kTargetSlots = vqfe_fuzz::kSlots;
constexpr size_t kTargetSlotCount = vqfe_fuzz::kSlotCount;
constexpr bool kRuns = false;
#endif

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

// The astronaut's portrait at 160 pixels wide, RGBA: a person the detector finds.
std::vector<uint8_t> personPhoto(VantorImageBuffer& buffer) {
    cv::Mat bgr = cv::imread(VQFE_FUZZ_PERSON_PHOTO);
    if (bgr.empty()) {
        std::fprintf(stderr, "cannot read %s\n", VQFE_FUZZ_PERSON_PHOTO);
        std::abort();
    }
    cv::resize(bgr, bgr, cv::Size(160, bgr.rows * 160 / bgr.cols), 0, 0, cv::INTER_AREA);
    cv::Mat rgba;
    cv::cvtColor(bgr, rgba, cv::COLOR_BGR2RGBA);
    std::vector<uint8_t> pixels(rgba.datastart, rgba.dataend);
    buffer.width = rgba.cols;
    buffer.height = rgba.rows;
    buffer.format = PIXEL_FORMAT_RGBA8888;
    buffer.dataLength = pixels.size();
    return pixels;
}

struct Framework {
    Framework() : system(openFramework(finder)), pixels(personPhoto(photo)) { photo.data = pixels.data(); }
    SlotFinder finder;
    VantorAlgorithmSystem* system;
    VantorImageBuffer photo;
    std::vector<uint8_t> pixels;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Framework* framework = new Framework();  // one system for the whole run, never freed
    if (size == 0) return 0;
    const vqfe_fuzz::NetworkSlot& slot = kTargetSlots[data[0] % kTargetSlotCount];
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
    if (code == NO_ERROR && kRuns) {
        const VantorErrorCode run = system->execute(framework->photo, AlgorithmType::AllNodes);
        if (run != NO_ERROR) {
            std::fprintf(stderr, "%s: a run gave %d: %s\n", slot.model, static_cast<int>(run), system->getLastErrorMessage().c_str());
            std::abort();
        }
    }
    system->releaseGraph();
    if (framework->finder.outstanding != 0) {
        std::fprintf(stderr, "%s: model block not returned\n", slot.model);
        std::abort();
    }
    return 0;
}
