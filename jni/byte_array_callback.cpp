#include "jni/byte_array_callback.h"

namespace VQFeature {

void onResult(char* /*data*/, unsigned long /*size*/) {}

}  // namespace VQFeature
