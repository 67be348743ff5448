// InstantAlgorithmSystem: a framework algorithm system for the engine benchmarks that
// answers at once. Every run succeeds and its output is one prepared sensitive-content
// buffer (kind 33), so what is measured is the library's own work around the framework.
// InstantSystemScope makes every VantorSystem created meanwhile use one. Benchmark-only;
// as thread-safe as the engine that calls it (one run at a time).
#pragma once

#include "Vantor/Vantor.h"
#include "vantor/algorithm_system_factory.h"

namespace VQFeature {
namespace bench {

class InstantAlgorithmSystem : public Vantor::VantorAlgorithmSystem {
public:
    static constexpr Vantor::AlgorithmType kKind = Vantor::AlgorithmType::PornCls;

    InstantAlgorithmSystem() {
        output_.isPorn = 0;
        output_.confidence = 0.125f;
    }

    Vantor::VantorErrorCode initFromFile(bool, const std::string&) override { return Vantor::NO_ERROR; }
    Vantor::VantorErrorCode initFromMemory(bool, char* data, int32_t) override {
        std::free(data);  // the framework owns the block it is given
        return Vantor::NO_ERROR;
    }
    Vantor::VantorErrorCode setResourceFinder(const Vantor::VantorResourceFinderConfig&) override {
        return Vantor::NO_ERROR;
    }
    Vantor::VantorErrorCode loadGraph(const std::string&) override { return Vantor::NO_ERROR; }
    void releaseGraph() override {}
    Vantor::VantorErrorCode execute(const Vantor::VantorAlgorithmInput&, Vantor::AlgorithmType) override {
        ++executes_;
        return Vantor::NO_ERROR;
    }
    void* getResult(const Vantor::AlgorithmType& type) override { return type == kKind ? &output_ : nullptr; }
    bool isInitialized() const override { return true; }
    bool hasGraph() const override { return true; }
    int32_t setIntParams(Vantor::AlgorithmType, const std::unordered_map<std::string, long>&) override { return 0; }
    int32_t setFloatParams(Vantor::AlgorithmType, const std::unordered_map<std::string, float>&) override {
        return 0;
    }
    int32_t setStringParams(Vantor::AlgorithmType, const std::unordered_map<std::string, std::string>&) override {
        return 0;
    }
    int32_t getNodeCount() const override { return 1; }
    bool producesType(Vantor::AlgorithmType type) const override { return type == kKind; }
    std::string getLastErrorMessage() const override { return ""; }
    void* getResultByName(const std::string&) override { return nullptr; }
    void clearResults() override {}
    uint64_t getExecuteCount() const override { return executes_; }
    const char* getVersion() const override { return "instant"; }
    void uninit() override {}

private:
    Vantor::PornClsBuffer output_;
    uint64_t executes_ = 0;
};

// While alive, VantorSystem gets an InstantAlgorithmSystem from its factory.
class InstantSystemScope {
public:
    InstantSystemScope()
        : scope_([] { return new InstantAlgorithmSystem(); },
                 [](Vantor::VantorAlgorithmSystem* system) { delete system; }) {}

private:
    ScopedAlgorithmSystemFactory scope_;
};

}  // namespace bench
}  // namespace VQFeature
