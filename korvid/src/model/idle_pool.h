// Objects that one thread at a time may use (a cascade classifier keeps its detection's state
// inside itself; an executor's run set holds a pass's buffers), pooled so that several threads
// can work at once: a thread takes an idle object, or makes one when every object is out,
// and gives it back when its lease ends. The pool keeps what it made, so it holds as many
// objects as were ever out at once. Thread-safe.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace kv {

template <class T>
class IdlePool {
public:
    // An object out of the pool; it goes back when the lease ends, also during unwinding.
    class Lease {
    public:
        Lease(IdlePool& pool, std::unique_ptr<T> object) : pool_(pool), object_(std::move(object)) {}
        ~Lease() { pool_.giveBack(std::move(object_)); }
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;
        T& operator*() const { return *object_; }
        T* operator->() const { return object_.get(); }

    private:
        IdlePool& pool_;
        std::unique_ptr<T> object_;
    };

    // Adds an idle object.
    void add(std::unique_ptr<T> object) {
        std::lock_guard<std::mutex> lock(mutex_);
        idle_.push_back(std::move(object));
        ++count_;
    }

    // An idle object, else make()'s (a std::unique_ptr<T>, made without the lock; what it
    // throws reaches the caller and the pool stays as it was).
    template <class Make>
    Lease take(Make make) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (!idle_.empty()) {
                std::unique_ptr<T> object = std::move(idle_.back());
                idle_.pop_back();
                return Lease(*this, std::move(object));
            }
        }
        std::unique_ptr<T> made = make();
        std::lock_guard<std::mutex> lock(mutex_);
        ++count_;
        idle_.reserve(count_);  // so that giving it back never allocates
        return Lease(*this, std::move(made));
    }

    // Objects the pool holds, idle or out.
    size_t count() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return count_;
    }

private:
    void giveBack(std::unique_ptr<T> object) {
        std::lock_guard<std::mutex> lock(mutex_);
        idle_.push_back(std::move(object));  // room was reserved when it was made
    }

    mutable std::mutex mutex_;  // guards idle_ and count_
    std::vector<std::unique_ptr<T>> idle_;
    size_t count_ = 0;
};

}  // namespace kv
