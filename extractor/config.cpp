#include "extractor/config.h"

namespace VQ {

AppConfig::AppConfig() : status("1"), vantorApplicationName("Extractor"), platformSdkVersion("2.9.115") {}

AppConfig::~AppConfig() = default;

}  // namespace VQ

namespace VQFeature {

Config::Config() : cursorMaxSize(16777216) {}

Config::Config(const Config& other) = default;

std::shared_ptr<Config> Config::clone() const { return std::make_shared<Config>(*this); }

}  // namespace VQFeature
