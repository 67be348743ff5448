// The open framework's test harness (korvid's tests and the fuzz seed maker): a resource
// finder over a model directory that records every request and release, test images as
// framework inputs, and a system fixture that creates, initialises and destroys a
// framework system.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "Vantor/Vantor.h"

namespace kv::testing {

// Serves <dir>/<name>.model, allocated with new[] as the base release expects. Names in
// `missing` are refused; names in `overrides` are served with the given content.
class RecordingFinder : public Vantor::VantorResourceFinder {
public:
    explicit RecordingFinder(std::string dir) : dir_(std::move(dir)) {}
    bool findResource(Vantor::VantorAlgorithmModel& model) override;
    bool releaseResource(Vantor::VantorAlgorithmModel& model) override;
    bool reportEvent(const Vantor::VantorAlgorithmModelEvent& event) override;

    std::vector<std::string> requested;
    std::vector<std::string> released;
    std::vector<std::string> events;  // "<event type> <model name>
    std::vector<std::string> missing;
    std::map<std::string, std::string> overrides;
    int outstanding = 0;  // blocks handed out and not yet released

private:
    std::string dir_;
};

// An image of testdata/ as upright BGR (empty when unreadable).
cv::Mat loadTestImage(const std::string& file);

// A framework input over pixels that the caller keeps alive.
struct ImageInput {
    std::vector<uint8_t> pixels;
    Vantor::VantorImageBuffer buffer;
};
// The image in RGBA8888 (format 0), rotation 0.
std::unique_ptr<ImageInput> rgbaInput(const cv::Mat& bgr);

// A system initialised with config and a RecordingFinder over the built model directory.
class SystemHarness {
public:
    explicit SystemHarness(const std::string& config = "{}");
    ~SystemHarness();
    SystemHarness(const SystemHarness&) = delete;
    SystemHarness& operator=(const SystemHarness&) = delete;

    Vantor::VantorAlgorithmSystem* operator->() const { return system; }
    // Loads graph and executes it on the named test image; returns the execute code.
    int run(const std::string& graph, const std::string& image, int type);

    Vantor::VantorAlgorithmSystem* system;
    RecordingFinder finder;
    std::unique_ptr<ImageInput> input;
};

}  // namespace kv::testing
