// Glintcore::SharePtr: the framework's intrusive reference-counted pointer.
//
// Objects held by a SharePtr derive from Glintcore::RefObject, which carries the count.
// Copying a SharePtr adds a reference, destroying one releases it; the object is deleted
// with its last reference. The count is atomic, so SharePtrs to one object may be copied
// and released from several threads; the object itself is not synchronised.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace Glintcore {

class RefObject {
public:
    RefObject() = default;
    RefObject(const RefObject&) : refs_(0) {}
    RefObject& operator=(const RefObject&) { return *this; }
    virtual ~RefObject() = default;

    void addRef() const { refs_.fetch_add(1, std::memory_order_relaxed); }
    // Deletes the object when the last reference goes.
    void release() const {
        if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }
    int32_t refCount() const { return refs_.load(std::memory_order_relaxed); }

private:
    mutable std::atomic<int32_t> refs_{0};
};

template <typename T>
class SharePtr {
public:
    SharePtr() = default;
    SharePtr(std::nullptr_t) {}
    // Takes a reference on p (p may already be held by other SharePtrs).
    explicit SharePtr(T* p) : p_(p) { if (p_) p_->addRef(); }
    SharePtr(const SharePtr& o) : p_(o.p_) { if (p_) p_->addRef(); }
    SharePtr(SharePtr&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
    template <typename U>
    SharePtr(const SharePtr<U>& o) : p_(o.get()) { if (p_) p_->addRef(); }
    ~SharePtr() { if (p_) p_->release(); }

    SharePtr& operator=(SharePtr o) noexcept { std::swap(p_, o.p_); return *this; }

    T* get() const { return p_; }
    T* operator->() const { return p_; }
    T& operator*() const { return *p_; }
    explicit operator bool() const { return p_ != nullptr; }
    void reset() { SharePtr().swap(*this); }
    void swap(SharePtr& o) noexcept { std::swap(p_, o.p_); }

private:
    T* p_ = nullptr;
};

template <typename T, typename... Args>
SharePtr<T> makeShared(Args&&... args) {
    return SharePtr<T>(new T(std::forward<Args>(args)...));
}

}  // namespace Glintcore
