#include "testing/framework_harness.h"

#include <cstring>
#include <fstream>
#include <iterator>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace kv::testing {

bool RecordingFinder::findResource(Vantor::VantorAlgorithmModel& model) {
    requested.push_back(model.name);
    for (const std::string& m : missing) {
        if (m == model.name) return false;
    }
    // An override is copied once, into the block, as a finder over the app's assets would.
    std::string read;
    auto it = overrides.find(model.name);
    if (it == overrides.end()) {
        std::ifstream in(dir_ + "/" + model.name + ".model", std::ios::binary);
        if (!in) return false;
        read.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    const std::string& content = it != overrides.end() ? it->second : read;
    auto* block = new uint8_t[content.size() + 1];
    std::memcpy(block, content.data(), content.size());
    block[content.size()] = 0;
    model.data = block;
    model.size = content.size();
    ++outstanding;
    return true;
}

bool RecordingFinder::reportEvent(const Vantor::VantorAlgorithmModelEvent& event) {
    events.push_back(std::to_string(event.type) + " " + event.modelName);
    return true;
}

bool RecordingFinder::releaseResource(Vantor::VantorAlgorithmModel& model) {
    released.push_back(model.name);
    if (model.data != nullptr) --outstanding;
    return VantorResourceFinder::releaseResource(model);
}

cv::Mat loadTestImage(const std::string& file) { return cv::imread(std::string(KORVID_TEST_DATA_DIR) + "/" + file); }

std::unique_ptr<ImageInput> rgbaInput(const cv::Mat& bgr) {
    auto in = std::make_unique<ImageInput>();
    cv::Mat rgba;
    cv::cvtColor(bgr, rgba, cv::COLOR_BGR2RGBA);
    in->pixels.assign(rgba.datastart, rgba.dataend);
    in->buffer.width = rgba.cols;
    in->buffer.height = rgba.rows;
    in->buffer.format = Vantor::PIXEL_FORMAT_RGBA8888;
    in->buffer.data = in->pixels.data();
    in->buffer.dataLength = in->pixels.size();
    return in;
}

SystemHarness::SystemHarness(const std::string& config)
    : system(Vantor::VantorAlgorithmFactory::CreateAlgorithmSystem()), finder(KORVID_TEST_MODEL_DIR) {
    char* block = static_cast<char*>(std::malloc(config.size() + 1));
    std::memcpy(block, config.c_str(), config.size() + 1);
    if (system->initFromMemory(false, block, static_cast<int32_t>(config.size())) == Vantor::NO_ERROR) {
        Vantor::VantorResourceFinderConfig finderConfig;
        finderConfig.finder = &finder;
        system->setResourceFinder(finderConfig);
    }
}

SystemHarness::~SystemHarness() {
    system->releaseGraph();
    system->uninit();
    Vantor::VantorAlgorithmFactory::DestroyAlgorithmSystem(system);
}

int SystemHarness::run(const std::string& graph, const std::string& image, int type) {
    int code = system->loadGraph(graph);
    if (code != Vantor::NO_ERROR) return code;
    input = rgbaInput(loadTestImage(image));
    return system->execute(input->buffer, static_cast<Vantor::AlgorithmType>(type));
}

}  // namespace kv::testing
