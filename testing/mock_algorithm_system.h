// MockAlgorithmSystem: a GoogleMock framework algorithm system, and a fixture helper
// that makes VantorSystem use it. Test-only.
#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <unordered_map>

#include "Vantor/VantorAlgorithmSystem.h"
#include "vantor/algorithm_system_factory.h"

namespace VQFeature {

class MockAlgorithmSystem : public Vantor::VantorAlgorithmSystem {
public:
    MOCK_METHOD(Vantor::VantorErrorCode, initFromFile, (bool, const std::string&), (override));
    MOCK_METHOD(Vantor::VantorErrorCode, initFromMemory, (bool, char*, int32_t), (override));
    MOCK_METHOD(Vantor::VantorErrorCode, setResourceFinder, (const Vantor::VantorResourceFinderConfig&), (override));
    MOCK_METHOD(Vantor::VantorErrorCode, loadGraph, (const std::string&), (override));
    MOCK_METHOD(void, releaseGraph, (), (override));
    MOCK_METHOD(Vantor::VantorErrorCode, execute, (const Vantor::VantorAlgorithmInput&, Vantor::AlgorithmType),
                (override));
    MOCK_METHOD(void*, getResult, (const Vantor::AlgorithmType&), (override));
    MOCK_METHOD(bool, isInitialized, (), (const, override));
    MOCK_METHOD(bool, hasGraph, (), (const, override));
    MOCK_METHOD(int32_t, setIntParams, (Vantor::AlgorithmType, (const std::unordered_map<std::string, long>&)),
                (override));
    MOCK_METHOD(int32_t, setFloatParams, (Vantor::AlgorithmType, (const std::unordered_map<std::string, float>&)),
                (override));
    MOCK_METHOD(int32_t, setStringParams,
                (Vantor::AlgorithmType, (const std::unordered_map<std::string, std::string>&)), (override));
    MOCK_METHOD(int32_t, getNodeCount, (), (const, override));
    MOCK_METHOD(bool, producesType, (Vantor::AlgorithmType), (const, override));
    MOCK_METHOD(std::string, getLastErrorMessage, (), (const, override));
    MOCK_METHOD(void*, getResultByName, (const std::string&), (override));
    MOCK_METHOD(void, clearResults, (), (override));
    MOCK_METHOD(uint64_t, getExecuteCount, (), (const, override));
    MOCK_METHOD(const char*, getVersion, (), (const, override));
    MOCK_METHOD(void, uninit, (), (override));
};

// Hands out one prepared mock per VantorSystem; the mock is deleted when the wrapper
// destroys its system. Tests set expectations through next() before creating the wrapper.
class MockSystemFactory {
public:
    MockSystemFactory()
        : next_(new ::testing::NiceMock<MockAlgorithmSystem>),
          scope_([this] { return handOut(); }, [this](Vantor::VantorAlgorithmSystem* system) {
              ++destroyed_;
              delete system;
          }) {}
    ~MockSystemFactory() { delete next_; }

    // The mock the next VantorSystem will get.
    ::testing::NiceMock<MockAlgorithmSystem>& next() { return *next_; }
    int created() const { return created_; }
    int destroyed() const { return destroyed_; }

private:
    Vantor::VantorAlgorithmSystem* handOut() {
        ++created_;
        auto* system = next_;
        next_ = new ::testing::NiceMock<MockAlgorithmSystem>;
        return system;
    }

    ::testing::NiceMock<MockAlgorithmSystem>* next_;
    int created_ = 0;
    int destroyed_ = 0;
    ScopedAlgorithmSystemFactory scope_;
};

}  // namespace VQFeature
