#include "vantor/vantor_system.h"

#include <cstdio>
#include <exception>
#include <vector>

#include "vantor/algorithm_system_factory.h"
#include "vantor/asset_manager_holder.h"
#include "vantor/resource_finder.h"
#include "vantor/vantor_log.h"

namespace VQFeature {

namespace {

std::string executeErrorText(int code, Vantor::AlgorithmType type) {
    static const char kFormat[] = "Vantor Execute error:%s, algorithmType:%d";
    const std::string name = VantorSystem::code2Error(static_cast<Vantor::VantorErrorCode>(code));
    const int typeNumber = static_cast<int>(type);
    // Measured by a first pass, then formatted into length + 1 bytes.
    const int length = std::snprintf(nullptr, 0, kFormat, name.c_str(), typeNumber);
    if (length <= 0) {
        return std::string();
    }
    std::vector<char> text(static_cast<size_t>(length) + 1);
    std::snprintf(text.data(), text.size(), kFormat, name.c_str(), typeNumber);
    return std::string(text.data(), static_cast<size_t>(length));
}

}  // namespace

VantorSystem::VantorSystem(const std::shared_ptr<Config>&, const std::string& modelDir,
                           const std::string& frameworkConfigPath, bool initFlag)
    : modelDir_(modelDir),
      frameworkConfigPath_(frameworkConfigPath),
      initFlag_(initFlag),
      system_(createAlgorithmSystem()) {}

VantorSystem::~VantorSystem() {
    // Framework exceptions here end the process (destructors are noexcept).
    system_->releaseGraph();
    system_->uninit();
    destroyAlgorithmSystem(system_);
    // finder_ goes after the system that used it.
}

int VantorSystem::init() {
    // One finder per wrapper: a framework that already holds it must never see it freed.
    if (!finder_) {
        finder_ = std::make_unique<VantorResourceFinderImpl>(modelDir_);
    }
    Vantor::VantorResourceFinderConfig finderConfig;
    finderConfig.finder = finder_.get();

    int code;
    if (AAssetManager* manager = AssetManagerHolder::getInstance().get()) {
        size_t length = 0;
        char* data = readWholeAsset(manager, frameworkConfigPath_, &length);
        if (data == nullptr) {
            logVantorDebug("config asset unreadable: " + frameworkConfigPath_);
            return kConfigAssetUnreadable;
        }
        // The framework owns the block from here on (it frees it with free()).
        code = system_->initFromMemory(initFlag_, data, static_cast<int32_t>(length));
    } else {
        code = system_->initFromFile(initFlag_, frameworkConfigPath_);
    }
    if (code == Vantor::NO_ERROR) {
        system_->setResourceFinder(finderConfig);
    } else {
        logVantorDebug("init failed: " + code2Error(static_cast<Vantor::VantorErrorCode>(code)));
    }
    return code;
}

int VantorSystem::setGraph(const std::string& graphJson) const {
    system_->releaseGraph();  // always first, even when the new graph is then rejected
    return system_->loadGraph(graphJson);
}

int VantorSystem::setParams(const Vantor::AlgorithmType& type,
                            const std::unordered_map<std::string, long>& params) const {
    return system_->setIntParams(type, params);
}

int VantorSystem::setParams(const Vantor::AlgorithmType& type,
                            const std::unordered_map<std::string, float>& params) const {
    return system_->setFloatParams(type, params);
}

int VantorSystem::setParams(const Vantor::AlgorithmType& type,
                            const std::unordered_map<std::string, std::string>& params) const {
    return system_->setStringParams(type, params);
}

void VantorSystem::exec(const Vantor::VantorAlgorithmInput& input, Vantor::AlgorithmType type,
                        const std::function<void(void*)>& onResult,
                        const std::function<void(int, std::string)>& onError) {
    // Covers the framework calls and both callbacks. Only std::exception is turned into
    // an error; anything else passes through to the caller.
    try {
        const int code = system_->execute(input, type);
        if (code != Vantor::NO_ERROR) {
            std::string text = executeErrorText(code, type);
            logVantorDebug(text);
            onError(code, text);
            return;
        }
        if (type == Vantor::AlgorithmType::AllNodes) {
            onResult(nullptr);  // a whole-graph run has no single output
            return;
        }
        void* output = system_->getResult(type);
        if (output == nullptr) {
            onError(kResultIsNull, "Vantor Result is NULL");
            return;
        }
        onResult(output);
    } catch (const std::exception& e) {
        // No blank after the colon: callers match this text.
        onError(kThrewException, std::string("Vantor Throw Exception:") + e.what());
    }
}

// The name of a framework code is its enumerator's name, spelt by the preprocessor.
std::string VantorSystem::code2Error(Vantor::VantorErrorCode code) {
#define VQFE_CODE_NAME(name) \
    case Vantor::name: return #name;
    switch (code) {
        VQFE_CODE_NAME(NO_ERROR)
        VQFE_CODE_NAME(INVALID_RES_FINDER)
        VQFE_CODE_NAME(NOT_INIT)
        VQFE_CODE_NAME(INVALID_CONFIG)
        VQFE_CODE_NAME(INVALID_GRAPH)
        VQFE_CODE_NAME(INVALID_MODEL)
        VQFE_CODE_NAME(INVALID_TYPE)
        VQFE_CODE_NAME(INVALID_NODE)
        VQFE_CODE_NAME(INVALID_FORMAT)
        VQFE_CODE_NAME(INTERNAL_ERROR)
        default: return "UNKNOWN";
    }
#undef VQFE_CODE_NAME
}

}  // namespace VQFeature
