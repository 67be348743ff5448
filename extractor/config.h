/// Configuration records the host fills before creating an Extractor.
///
/// Config: the extractor's own settings. AppConfig: the host application's description.
/// Plain public fields, nothing validated. Both are held by shared_ptr; copying a Config
/// copies its texts and shares its AppConfig and callback objects.
#pragma once

#include <memory>
#include <string>

#include "Vantor/VantorPlatform.h"

namespace VQ {

class AppConfig {
public:
    /// Empty texts except status, vantorApplicationName and platformSdkVersion.
    AppConfig();
    ~AppConfig();

    std::string appID;        ///< the host application's id
    std::string accessKey;    ///< the host's access key for the framework
    std::string sdkVersion;   ///< the host's SDK version
    std::string appVersion;   ///< the host application's version
    std::string deviceType;   ///< the device model
    std::string deviceId;     ///< the device's id
    std::string cacheDir;     ///< a directory the framework may use for its own files
    std::string platform;     ///< the platform's name
    std::string host;         ///< the host name of the framework's services
    std::string status;                  ///< the text "1" by default
    std::string vantorApplicationName;   ///< "Extractor"
    std::string platformSdkVersion;      ///< the library version, "2.9.115"
    /// Spelled this way on purpose: apps bind to AppConfig_orrelinHeaderFeild_get/_set.
    std::shared_ptr<Vantor::VantorHeaderProvider> orrelinHeaderFeild;
    std::shared_ptr<Vantor::VantorNetworkDelegate> networkDelegate;  ///< carried for the host, may be null
    std::shared_ptr<Vantor::VantorThreadDelegate> threadDelegate;    ///< carried for the host, may be null
};

}  // namespace VQ

namespace VQFeature {

/// Host callback for model downloads; carried for the host, never called by the engine.
class ModelsDownloadCallback {
public:
    virtual ~ModelsDownloadCallback() = default;
};

/// The extractor's own settings: plain public fields, read when the Extractor is
/// created and by init(). A default Config is all an Extractor needs.
class Config {
public:
    /// A new Config: a default AppConfig, empty texts, cursorMaxSize 0.
    Config();
    Config(const Config& other);
    Config& operator=(const Config&) = default;

    /// A new Config made with the copy constructor (texts copied, handles shared).
    std::shared_ptr<Config> clone() const;

    std::shared_ptr<VQ::AppConfig> appConfig;  ///< the host application's description
    std::string modelsName;  ///< carried for the host; the engine does not read it
    std::string dbPath;      ///< carried for the host; the engine does not read it
    std::string graph;       ///< when not empty, loaded right after the framework initialises
    int cursorMaxSize;       ///< carried for the host; the engine does not read it
    std::shared_ptr<ModelsDownloadCallback> modelsDownloadCallback;  ///< carried, never called
};

}  // namespace VQFeature
