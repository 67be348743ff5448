// A cascade classifier file checked before OpenCV reads it. OpenCV 4.6's XML reader trusts
// its input (a corrupted file can make it read through a null pointer) and its cascade
// reader trusts the numbers (tree sizes, feature indices and rectangles index arrays at
// detection). So a cascade is parsed here first, in a strict subset of XML, checked for the
// structure and numbers a boosted HAAR or LBP cascade must have, and written out again in
// plain form; OpenCV only ever reads that rewritten text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kv {

// The cascade in data rewritten for OpenCV. Throws Error(INVALID_MODEL) saying why not.
std::string checkedCascadeText(const uint8_t* data, size_t size);

}  // namespace kv
