/// NativeStringUtils: hands a block of native memory to a ByteArrayCallBack as a copy.
/// VantorFeatureData: a feature text with its length, as Java sees it.
/// Stateless / plain data; no synchronisation.
#pragma once

#include <cstdint>

#include "jni/byte_array_callback.h"

namespace VQFeature {

class NativeStringUtils {
public:
    /// Copies size bytes starting at the native address into a fresh block and passes
    /// it to callback->onResult; the block is released afterwards, so the callback must
    /// not keep it. A null callback skips the call; a size of 0 or less hands over an
    /// empty block. Throws std::invalid_argument (IllegalArgumentException in Java) for address 0 with a positive size.
    static void getJavaDataFromByte(int64_t address, int64_t size, ByteArrayCallBack* callback);
};

/// Owns featureData (an array-new block, as the binding's text setter allocates it);
/// the destructor releases it. Not copyable.
class VantorFeatureData {
public:
    VantorFeatureData() = default;
    VantorFeatureData(const VantorFeatureData&) = delete;
    VantorFeatureData& operator=(const VantorFeatureData&) = delete;
    ~VantorFeatureData() { delete[] featureData; }

    char* featureData = nullptr;  ///< the feature text
    int featureLen = 0;           ///< its length in bytes
};

}  // namespace VQFeature
