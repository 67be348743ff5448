// Framework inputs. VantorAlgorithmInput is the polymorphic base that execute() takes;
// VantorImageBuffer is the one input kind the library uses: a decoded image in memory.
// The framework only reads an input during the execute() call it is passed to; the
// caller keeps the pixels alive for that call.
#pragma once

#include <cstdint>

namespace Vantor {

enum VantorInputType : int32_t {
    INPUT_TYPE_IMAGE = 0,    // VantorImageBuffer
    INPUT_TYPE_TEXTURE = 1,  // GPU texture (device framework only)
    INPUT_TYPE_TENSOR = 2,   // pre-processed tensor (device framework only)
};

// Pixel formats of VantorImageBuffer::format. -1 to 8 are meaningful; bytes per pixel
// (or per plane layout) decide how much data a width x height image needs.
enum VantorPixelFormat : int32_t {
    PIXEL_FORMAT_AUTO = -1,   // treated as RGBA8888
    PIXEL_FORMAT_RGBA8888 = 0,
    PIXEL_FORMAT_BGRA8888 = 1,
    PIXEL_FORMAT_RGB888 = 2,
    PIXEL_FORMAT_BGR888 = 3,
    PIXEL_FORMAT_GRAY8 = 4,
    PIXEL_FORMAT_NV21 = 5,    // Y plane, then interleaved V/U at half resolution
    PIXEL_FORMAT_NV12 = 6,    // Y plane, then interleaved U/V at half resolution
    PIXEL_FORMAT_I420 = 7,    // Y, U, V planes, chroma at half resolution
    PIXEL_FORMAT_ARGB8888 = 8,
};

// Rotation codes of VantorImageBuffer::rotation: how far the stored image must be
// turned clockwise to stand upright.
enum VantorRotation : int32_t {
    ROTATION_0 = 0,
    ROTATION_90 = 1,
    ROTATION_180 = 2,
    ROTATION_270 = 3,
};

class VantorAlgorithmInput {
public:
    explicit VantorAlgorithmInput(VantorInputType type) : type(type) {}
    virtual ~VantorAlgorithmInput() = default;

    VantorInputType type;
};

class VantorImageBuffer : public VantorAlgorithmInput {
public:
    VantorImageBuffer() : VantorAlgorithmInput(INPUT_TYPE_IMAGE) {}

    int32_t width = 0;
    int32_t height = 0;
    const uint8_t* data = nullptr;  // not owned
    int32_t format = PIXEL_FORMAT_RGBA8888;
    int32_t rotation = ROTATION_0;
    int32_t stride = 0;             // bytes per row; 0 means tightly packed
    int64_t timestamp = 0;
    // Byte length of data. The framework never reads past it and refuses data shorter
    // than width, height and format require (INVALID_FORMAT).
    uint64_t dataLength = 0;
};

}  // namespace Vantor
