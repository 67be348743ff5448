// Configuration records the host fills before creating an Extractor.
//
// Config: the extractor's own settings. AppConfig: the host application's description.
// Plain public fields, nothing validated. Both are held by shared_ptr; copying a Config
// copies its texts and shares its AppConfig and callback objects.
#pragma once

#include <memory>
#include <string>

#include "Vantor/VantorPlatform.h"

namespace VQ {

class AppConfig {
public:
    AppConfig();
    ~AppConfig();

    std::string appID;
    std::string accessKey;
    std::string sdkVersion;
    std::string appVersion;
    std::string deviceType;
    std::string deviceId;
    std::string cacheDir;
    std::string platform;
    std::string host;
    std::string status;                  // the text "1" by default
    std::string vantorApplicationName;   // "Extractor"
    std::string platformSdkVersion;      // the library version, "2.9.115"
    // Spelled this way on purpose: apps bind to AppConfig_orrelinHeaderFeild_get/_set.
    std::shared_ptr<Vantor::VantorHeaderProvider> orrelinHeaderFeild;
    std::shared_ptr<Vantor::VantorNetworkDelegate> networkDelegate;
    std::shared_ptr<Vantor::VantorThreadDelegate> threadDelegate;
};

}  // namespace VQ

namespace VQFeature {

// Host callback for model downloads; carried for the host, never called by the engine.
class ModelsDownloadCallback {
public:
    virtual ~ModelsDownloadCallback() = default;
};

class Config {
public:
    Config();
    Config(const Config& other);
    Config& operator=(const Config&) = default;

    // A new Config made with the copy constructor (texts copied, handles shared).
    std::shared_ptr<Config> clone() const;

    std::shared_ptr<VQ::AppConfig> appConfig;
    std::string modelsName;
    std::string dbPath;
    std::string graph;       // when not empty, loaded right after the framework initialises
    int cursorMaxSize;
    std::shared_ptr<ModelsDownloadCallback> modelsDownloadCallback;
};

}  // namespace VQFeature
