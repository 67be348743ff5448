#include "jni/native_string_utils.h"

#include <cstring>
#include <memory>
#include <stdexcept>

namespace VQFeature {

void NativeStringUtils::getJavaDataFromByte(int64_t address, int64_t size, ByteArrayCallBack* callback) {
    const size_t length = size > 0 ? static_cast<size_t>(size) : 0;
    if (address == 0 && length > 0) throw std::invalid_argument("null native address");
    // The block has always been allocated with array new; it is released the same way
    // (the old code freed it with free(), a mismatched pair).
    std::unique_ptr<char[]> block(new char[length]);
    if (length > 0) std::memcpy(block.get(), reinterpret_cast<const char*>(address), length);
    if (callback != nullptr) callback->onResult(block.get(), length);
}

}  // namespace VQFeature
