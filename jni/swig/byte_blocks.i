// Methods that move raw bytes between Java arrays and native blocks. A Java byte[]
// stands for a (pointer, length) pair; a null array is a null pointer with length 0.
// Arrays read by native code are released without copy-back, arrays native code
// writes into are copied back.
%apply (const char *STRING, size_t LENGTH) { (const char* data, unsigned long size) };
%apply (const char *STRING, size_t LENGTH) { (const char* bytes, unsigned long n) };
%apply (char *STRING, size_t LENGTH) { (char* dest, unsigned long size) };

%{
namespace {
// Stands in for a null array where a zero-length block is meant.
const char kNoBytes[1] = {0};
}  // namespace
%}

// The header versions are replaced by guarded ones below under the same Java names.
%ignore VQFeature::Result::memcpyStructResult;
%ignore VQFeature::Result::setResultNative;
%ignore VQFeature::MultiResult::ResultItem::memcpyStructResult;
%ignore VQFeature::CoverUtil::getMemoryAddress;
%ignore VQFeature::CoverUtil::releaseObject;
%rename(memcpyStructResult) VQFeature::Result::copyBlobInto;
%rename(setResultNative) VQFeature::Result::storeBlobCopy;
%rename(memcpyStructResult) VQFeature::MultiResult::ResultItem::copyBlobInto;
%rename(getMemoryAddress) VQFeature::CoverUtil::copiedText;
%rename(releaseObject) VQFeature::CoverUtil::releaseCopy;

%extend VQFeature::Result {
  /// Copies as many bytes as the array holds, whatever resultLength says: sizing the
  /// array is the caller's job. Nothing is copied into a null array or out of a result
  /// without blob.
  void copyBlobInto(char* dest, unsigned long size) {
    if (dest != nullptr && size > 0 && $self->result != nullptr) $self->memcpyStructResult(dest, size);
  }
  /// Stores a malloc copy of the array; resultLength is the caller's to set. A null
  /// array stores a zero-length block.
  void storeBlobCopy(const char* data, unsigned long size) {
    $self->setResultNative(data != nullptr ? data : kNoBytes, size);
  }
}

%extend VQFeature::MultiResult::ResultItem {
  /// Copies as many bytes of the item's blob as the array holds (size it from getSize()).
  void copyBlobInto(char* dest, unsigned long size) {
    if (dest != nullptr && size > 0 && $self->data != nullptr) $self->memcpyStructResult(dest, size);
  }
}

%extend VQFeature::CoverUtil {
  /// The array's bytes as text, up to the first zero byte (or all of them). The native
  /// copy made on the way is released here (the old binding let it leak).
  static std::string copiedText(char* data, unsigned long size) {
    std::unique_ptr<char[]> block(VQFeature::CoverUtil::getMemoryAddress(data, size));
    return std::string(block.get(), strnlen(block.get(), size));
  }
  /// Hands a native copy of the array to the blob release function (free()), never the
  /// array's own memory, which belongs to the virtual machine.
  static void releaseCopy(char* data, unsigned long size) {
    char* block = nullptr;
    if (data != nullptr) {
      block = static_cast<char*>(malloc(size > 0 ? size : 1));
      if (block == nullptr) throw std::bad_alloc();
      memcpy(block, data, size);
    }
    VQFeature::CoverUtil::releaseObject(block, block != nullptr ? size : 0);
  }
}
// Raw blob pointers from Java. Java only ever holds a pointer a record's getter gave
// it; setting it into another record (a constructor, emplace, the result and data
// fields) makes that record one more holder of the block, so the block is freed once,
// by its last holder. A pointer whose block has been freed since is refused rather than
// read or freed again. The check pins the block for the length of the call: the record
// the pointer came from may be freeing it on another thread.
%typemap(check) void* result (BlockPin pin), void* data (BlockPin pin) {
  if ($1 != nullptr && !pin.take($1)) {
    SWIG_JavaThrowException(jenv, SWIG_JavaIllegalArgumentException,
                            "not a live result block: the record it came from has freed it");
    return $null;
  }
}
// Setting a field lets go of the block it held (kept alive while another record holds it).
%typemap(memberin) void* result, void* data {
  if ($1 != $input) {
    VQFeature::blobs::hold($input, 0);
    VQFeature::blobs::release($1);
    $1 = $input;
  }
}

%ignore VQFeature::Result::resetData;
%rename(resetData) VQFeature::Result::letGoOfBlob;
%javamethodmodifiers VQFeature::Result::letGoOfBlob "/**
   * Empties the result: getResult() becomes null and getResultLength() 0. Java cannot
   * take a block over, so the block is freed here unless another record holds it (the
   * several-kind result the engine is filling, or a record its pointer was set into).
   */
  public";
%extend VQFeature::Result {
  void letGoOfBlob() {
    $self->freeResult();
    $self->resultLength = 0;
  }
}

%{
#include <cstdlib>
#include <cstring>
#include <memory>

#include "extractor/blob_blocks.h"

namespace {
// One more holder of a live block until the end of the call that took it, on every
// return path.
class BlockPin {
public:
  BlockPin() = default;
  BlockPin(const BlockPin&) = delete;
  BlockPin& operator=(const BlockPin&) = delete;
  ~BlockPin() { VQFeature::blobs::release(block_); }
  /// False, and nothing held, when the block is not live.
  bool take(void* block) {
    if (!VQFeature::blobs::holdIfLive(block)) return false;
    block_ = block;
    return true;
  }

private:
  void* block_ = nullptr;
};
}  // namespace
%}
