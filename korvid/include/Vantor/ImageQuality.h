// The framework's image-quality API: plain C functions, 0 = success.
#pragma once

#include <cstdint>

extern "C" {

// Creation record (48 bytes, fixed layout).
struct vtx_ai_image_quality_enhancement_vida_param {
    const char* model_path;   // quality model file; empty or unusable: built-in default
    uint64_t reserved0;       // 0
    int32_t option;
    int32_t mode;             // 1
    int32_t reserved1;        // 0
    float scale;              // 1.0
    int32_t reserved2;        // 0
    int32_t unused;           // not read
    uint64_t reserved3;       // 0
};

// Creates a scorer and stores its handle in *handle. Non-zero when no model loads.
int vtx_ai_image_quality_enhancement_vida_create(void** handle,
                                                 const vtx_ai_image_quality_enhancement_vida_param* param);
// Scores the PNG or JPEG file at image_path into *score, 0 (worst) to 1 (best).
// Non-zero when the file cannot be read or decoded, or handle is null.
int vtx_ai_image_quality_enhancement_vida_process(void* handle, const char* image_path, int a, int b,
                                                  float* score);
// Releases the scorer ("destory" is the API's own spelling).
int vtx_ai_image_quality_enhancement_vida_destory(void* handle);
}

static_assert(sizeof(vtx_ai_image_quality_enhancement_vida_param) == 48, "creation record is 48 bytes");
