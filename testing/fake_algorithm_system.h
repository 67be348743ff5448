// FakeAlgorithmSystem: a scripted framework algorithm system for engine tests, and a
// scope that makes every VantorSystem created meanwhile use a new one. Test-only.
//
// execute() fills a sensitive-content buffer (kind 33) whose confidence is the image
// width / 1000, and a classification buffer under the output name
// "ClassificationPostProcess_c300"; an image of width kFailingWidth fails with
// INVALID_FORMAT. It counts how many callers are inside execute() at once, without
// any lock of its own (so a race in the caller's gate shows up under TSan).
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "Vantor/Vantor.h"
#include "vantor/algorithm_system_factory.h"

namespace VQFeature {

class FakeAlgorithmSystem : public Vantor::VantorAlgorithmSystem {
public:
    static constexpr int kFailingWidth = 13;

    Vantor::VantorErrorCode initFromFile(bool, const std::string&) override { return initCode; }
    Vantor::VantorErrorCode initFromMemory(bool, char* data, int32_t) override {
        std::free(data);
        return initCode;
    }
    Vantor::VantorErrorCode setResourceFinder(const Vantor::VantorResourceFinderConfig&) override {
        ++finderInstalls;
        return Vantor::NO_ERROR;
    }
    Vantor::VantorErrorCode loadGraph(const std::string& graph) override {
        graphs.push_back(graph);
        return Vantor::NO_ERROR;
    }
    void releaseGraph() override { ++releases; }
    Vantor::VantorErrorCode execute(const Vantor::VantorAlgorithmInput& input, Vantor::AlgorithmType type) override {
        const int now = ++inside;
        int seen = maxInside.load();
        while (now > seen && !maxInside.compare_exchange_weak(seen, now)) {
        }
        std::this_thread::yield();
        // Plain (unsynchronised) state: only safe if callers never overlap.
        ++executes;
        executedTypes.push_back(type);
        lastImage = static_cast<const Vantor::VantorImageBuffer&>(input);
        Vantor::VantorErrorCode code = Vantor::NO_ERROR;
        if (lastImage.width == kFailingWidth) {
            code = Vantor::INVALID_FORMAT;
        } else {
            porn = std::make_unique<Vantor::PornClsBuffer>();
            porn->isPorn = 1;
            porn->confidence = static_cast<float>(lastImage.width) / 1000.f;
            classification = std::make_unique<Vantor::NHClassificationBuffer>();
            classification->bufferSize = 1;
            classification->labels = {"cat", "dog"};
        }
        --inside;
        return code;
    }
    void* getResult(const Vantor::AlgorithmType& type) override {
        if (absentTypes.count(type) != 0) {
            return nullptr;
        }
        return porn.get();  // every kind answers with this buffer; the encoder decides
    }
    bool isInitialized() const override { return true; }
    bool hasGraph() const override { return !graphs.empty(); }
    int32_t setIntParams(Vantor::AlgorithmType, const std::unordered_map<std::string, long>& params) override {
        intParams = params;
        return 0;
    }
    int32_t setFloatParams(Vantor::AlgorithmType, const std::unordered_map<std::string, float>& params) override {
        floatParams = params;
        return 0;
    }
    int32_t setStringParams(Vantor::AlgorithmType,
                            const std::unordered_map<std::string, std::string>& params) override {
        stringParams = params;
        return 0;
    }
    int32_t getNodeCount() const override { return 0; }
    bool producesType(Vantor::AlgorithmType) const override { return true; }
    std::string getLastErrorMessage() const override { return ""; }
    void* getResultByName(const std::string& name) override {
        if (absentNames.count(name) != 0) {
            return nullptr;
        }
        return classification.get();
    }
    void clearResults() override {}
    uint64_t getExecuteCount() const override { return static_cast<uint64_t>(executes); }
    const char* getVersion() const override { return "fake"; }
    void uninit() override {}

    Vantor::VantorErrorCode initCode = Vantor::NO_ERROR;
    std::set<Vantor::AlgorithmType> absentTypes;
    std::set<std::string> absentNames;

    int finderInstalls = 0;
    int releases = 0;
    std::vector<std::string> graphs;
    std::unordered_map<std::string, long> intParams;
    std::unordered_map<std::string, float> floatParams;
    std::unordered_map<std::string, std::string> stringParams;
    int executes = 0;
    std::vector<Vantor::AlgorithmType> executedTypes;
    Vantor::VantorImageBuffer lastImage;
    std::atomic<int> inside{0};
    std::atomic<int> maxInside{0};

private:
    std::unique_ptr<Vantor::PornClsBuffer> porn;
    std::unique_ptr<Vantor::NHClassificationBuffer> classification;
};

// While alive, VantorSystem gets a new FakeAlgorithmSystem; latest() is the newest.
class FakeSystemFactory {
public:
    FakeSystemFactory()
        : scope_(
              [this] {
                  systems_.push_back(new FakeAlgorithmSystem);
                  systems_.back()->initCode = initCodeForNew;
                  return systems_.back();
              },
              [this](Vantor::VantorAlgorithmSystem* system) {
                  systems_.erase(std::find(systems_.begin(), systems_.end(), system));
                  delete system;
              }) {}

    FakeAlgorithmSystem& latest() { return *systems_.back(); }
    size_t alive() const { return systems_.size(); }

    // What initialise answers on the systems created from now on.
    Vantor::VantorErrorCode initCodeForNew = Vantor::NO_ERROR;

private:
    std::vector<FakeAlgorithmSystem*> systems_;
    ScopedAlgorithmSystemFactory scope_;
};

}  // namespace VQFeature
