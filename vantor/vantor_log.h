// Debug log lines of the framework adapter: Android log, priority debug, tag
// "vantor_system", the text passed through "%s".
#pragma once

#include <string>

namespace VQFeature {

void logVantorDebug(const std::string& text);

}  // namespace VQFeature
