/// StructResultCopyCallBack: receives a copy of one result structure's bytes. Hosts
/// implement it, usually in Java through the binding's director.
///
/// The buffer stays the caller's: an implementation may edit the bytes in place during
/// the call (a Java implementation's edits are copied back) but must not keep the
/// pointer. Implementations decide their own thread-safety; callers may invoke them
/// from any thread.
#pragma once

namespace VQFeature {

class StructResultCopyCallBack {
public:
    virtual ~StructResultCopyCallBack() = default;
    /// Called with the bytes; a Java implementation receives them as one byte[].
    virtual void onResult(char* data, unsigned long size) = 0;
};

}  // namespace VQFeature
