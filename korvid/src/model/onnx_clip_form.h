// OpenCV 4.6 reads ONNX's Clip only in its opset-6 form (bounds as attributes "min" and
// "max"), and then runs it inside the convolution before it (ReLU6). Valid models of later
// opsets give the bounds as inputs. This rewrites the bytes of a model so that every Clip
// whose bounds are scalar float initialisers carries them as attributes instead, for
// OpenCV only; the file itself stays valid ONNX.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kv {

// The rewritten model, or empty when no Clip needs it or the bytes are not the well-formed
// model onnxStructureFault() accepts (the caller then reads the bytes as they are).
std::vector<uint8_t> clipBoundsAsAttributes(const uint8_t* data, size_t size);

}  // namespace kv
