/// ByteArrayCallBack: receives a block of bytes copied out of native memory
/// (NativeStringUtils). Hosts implement it, usually in Java through the binding's
/// director.
///
/// The buffer stays the caller's: an implementation may edit the bytes in place during
/// the call (a Java implementation's edits are copied back) but must not keep the
/// pointer. Implementations decide their own thread-safety; callers may invoke them
/// from any thread.
#pragma once

namespace VQFeature {

class ByteArrayCallBack {
public:
    virtual ~ByteArrayCallBack() = default;
    /// Called with the bytes; a Java implementation receives them as one byte[].
    virtual void onResult(char* data, unsigned long size) = 0;
};

/// A sink of the callbacks' shape that ignores its input. Java reaches it as
/// MPFeatureExtractor.onResult(byte[]), a cheap way to hand a byte array to native code.
void onResult(char* data, unsigned long size);

}  // namespace VQFeature
