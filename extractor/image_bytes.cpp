#include "extractor/image_bytes.h"

#include <limits>

#include "Vantor/VantorAlgorithmInput.h"

namespace VQFeature {

uint64_t imageBytesNeeded(int width, int height, int format) {
    if (width <= 0 || height <= 0) return 0;
    const uint64_t w = static_cast<uint64_t>(width), h = static_cast<uint64_t>(height);
    uint64_t pixels = 0;
    if (__builtin_mul_overflow(w, h, &pixels)) return std::numeric_limits<uint64_t>::max();
    switch (format) {
        case Vantor::PIXEL_FORMAT_RGB888:
        case Vantor::PIXEL_FORMAT_BGR888: return pixels * 3;  // < 2^62 * 3: no overflow
        case Vantor::PIXEL_FORMAT_GRAY8: return pixels;
        case Vantor::PIXEL_FORMAT_NV21:
        case Vantor::PIXEL_FORMAT_NV12:
        case Vantor::PIXEL_FORMAT_I420:
            // Y plane, then two chroma planes at half resolution (rounded up).
            return pixels + 2 * ((w + 1) / 2) * ((h + 1) / 2);
        default: {
            uint64_t bytes = 0;
            if (__builtin_mul_overflow(pixels, uint64_t{4}, &bytes)) return std::numeric_limits<uint64_t>::max();
            return bytes;
        }
    }
}

}  // namespace VQFeature
