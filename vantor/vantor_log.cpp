#include "vantor/vantor_log.h"

#include <android/log.h>

namespace VQFeature {

void logVantorDebug(const std::string& text) {
    __android_log_print(ANDROID_LOG_DEBUG, "vantor_system", "%s", text.c_str());
}

}  // namespace VQFeature
