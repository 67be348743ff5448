// A structural check of ONNX model bytes, made before OpenCV's importer sees them. OpenCV
// 4.6 trusts what a parsed model says: it copies dims x element size bytes out of a tensor's
// raw_data whatever its length, and names a layer after a node's first output whether or
// not it has one. A corrupted file then reads past a buffer instead of failing, so every
// such disagreement is refused here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kv {

// Empty when the bytes are a well-formed ONNX model as far as OpenCV relies on it (wire
// format, graph, nodes, tensors and their data sizes, input shapes); otherwise why not.
std::string onnxStructureFault(const uint8_t* data, size_t size);

}  // namespace kv
