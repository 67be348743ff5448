#include "extractor/image_buffer.h"

#include <cstring>

namespace VQFeature {

ImageBuffer::ImageBuffer() : width(0), height(0), data(nullptr), length(0), rotateMode(0), format(0) {}

ImageBuffer::ImageBuffer(int width, int height, const char* text, unsigned long length)
    : width(width), height(height), data(nullptr), length(length), rotateMode(0), format(0) {
    if (text != nullptr) setData(text, std::strlen(text));
}

ImageBuffer::~ImageBuffer() = default;

void ImageBuffer::setData(const char* bytes, unsigned long n) {
    // The earlier owned block is released here rather than leaked: once data points at
    // the new block nobody can reach the old one.
    owned_.reset(new unsigned char[n]());
    ownedSize_ = n;
    if (n > 0 && bytes != nullptr) std::memcpy(owned_.get(), bytes, n);
    data = owned_.get();
}

unsigned long ImageBuffer::readableBytes() const {
    if (data == nullptr) return 0;
    return data == owned_.get() ? ownedSize_ : length;
}

void ImageBuffer::recycle() {
    // Only a block this buffer allocated is released; a pointer the caller stored in
    // data directly is the caller's.
    if (data == owned_.get()) {
        owned_.reset();
        ownedSize_ = 0;
    }
    data = nullptr;
}

}  // namespace VQFeature
