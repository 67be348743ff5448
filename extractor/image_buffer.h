/// ImageBuffer: one decoded image as the caller hands it over.
///
/// Public fields, no invariants. data points at the pixels; a block set through setData
/// (or the string constructor) is owned by the buffer and released by recycle() or the
/// destructor. A pointer assigned to data directly stays the caller's. length is always
/// the caller's to set: setData leaves it alone on purpose.
/// Not synchronised: one thread at a time.
#pragma once

#include <cstdint>
#include <memory>

namespace VQFeature {

class ImageBuffer {
public:
    /// All fields zero, no data.
    ImageBuffer();
    /// Copies the text's bytes into an owned block (the managed binding hands over a
    /// string that dies right after the call, so pointing at it would dangle).
    ImageBuffer(int width, int height, const char* data, unsigned long length);
    ImageBuffer(const ImageBuffer&) = delete;
    ImageBuffer& operator=(const ImageBuffer&) = delete;
    ~ImageBuffer();

    /// Stores a copy of the n bytes in a new block of n bytes as data and releases the
    /// block an earlier setData allocated. length is unchanged: set it yourself.
    void setData(const char* bytes, unsigned long n);
    /// Releases the block set through setData and sets data null. length is unchanged.
    void recycle();
    /// How many bytes may be read at data: the size of the block setData (or the text
    /// constructor) allocated while data still points at it; length when data was
    /// assigned directly (the caller vouches for it); 0 without data.
    unsigned long readableBytes() const;

    int width;            ///< pixels per row
    int height;           ///< rows
    unsigned char* data;
    unsigned long length; ///< bytes of data (RGBA8888: width x height x 4)
    int rotateMode;  ///< quarter turns, 0..3; any other value runs as 0 (no rotation)
    /// the framework's pixel format (VantorPixelFormat), -1..8 (0 RGBA8888); any other
    /// value runs as 0, RGBA8888, without an error
    int format;

private:
    std::unique_ptr<unsigned char[]> owned_;
    unsigned long ownedSize_ = 0;
};

}  // namespace VQFeature
