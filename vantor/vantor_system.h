// VantorSystem: the library's one handle on the framework's algorithm system.
//
// Creates the framework system, initialises it from its configuration file (from the
// registered Android assets, else the file system), installs the model resource finder,
// loads graphs, forwards parameters and runs one algorithm per exec(), reporting the
// output or an error (code, text) through callbacks. Owns the framework system and the
// finder. No lock: the Extractor serialises every call.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "Vantor/VantorAlgorithmSystem.h"

namespace VQFeature {

// Accepted and never read, so a declaration is enough.
class Config;
class VantorResourceFinderImpl;

class VantorSystem {
public:
    // Error codes of the wrapper itself, beside the framework's 0..9.
    static constexpr int kResultIsNull = 204;
    static constexpr int kThrewException = 500;
    static constexpr int kConfigAssetUnreadable = -1;

    // Creates the framework system. The Config is accepted and not read.
    VantorSystem(const std::shared_ptr<Config>& config, const std::string& modelDir,
                 const std::string& frameworkConfigPath, bool initFlag);
    virtual ~VantorSystem();

    // 0, a framework error code, or -1 when the configuration asset cannot be read.
    int init();
    // Releases the current graph, then loads graphJson; returns the load's code.
    int setGraph(const std::string& graphJson) const;
    int setParams(const Vantor::AlgorithmType& type, const std::unordered_map<std::string, long>& params) const;
    int setParams(const Vantor::AlgorithmType& type, const std::unordered_map<std::string, float>& params) const;
    int setParams(const Vantor::AlgorithmType& type, const std::unordered_map<std::string, std::string>& params) const;
    // Runs type on input. Success: onResult(output), or onResult(nullptr) for type -1.
    // Failure: onError(code, text) with "Vantor Execute error:%s, algorithmType:%d",
    // (204, "Vantor Result is NULL") or (500, "Vantor Throw Exception:" + what()).
    void exec(const Vantor::VantorAlgorithmInput& input, Vantor::AlgorithmType type,
              const std::function<void(void*)>& onResult,
              const std::function<void(int, std::string)>& onError);

    static std::string code2Error(Vantor::VantorErrorCode code);

    // The framework system, for fetching outputs after a whole-graph run.
    Vantor::VantorAlgorithmSystem* algorithmSystem() const { return system_; }

private:
    std::string modelDir_;
    std::string frameworkConfigPath_;
    bool initFlag_;
    Vantor::VantorAlgorithmSystem* system_;
    std::unique_ptr<VantorResourceFinderImpl> finder_;
};

}  // namespace VQFeature
