// What the systems of a process read from model bytes and share, by key (networks by digest
// and shape, cascades by digest). A system asking for something another holds gets the same
// object; one asking for something another is reading waits for that read (and, should it
// fail, reads for itself); things of other keys are read meanwhile, so two systems loading a
// graph at once read its models side by side. The store holds weak references: what no
// system holds goes, except the last `keptRecent` asked for, which the store holds itself so
// that a graph reloaded after its nodes went finds them. Thread-safe.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

namespace kv {

template <class Key, class T>
class ProcessStore {
public:
    explicit ProcessStore(size_t keptRecent = 0) : keptRecent_(keptRecent) {}

    // The object of key: the one held, else read() (called without the lock; what it throws
    // reaches the caller, and a waiting system then reads for itself).
    template <class Read>
    std::shared_ptr<T> get(const Key& key, Read read) {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            if (auto it = entries_.find(key); it != entries_.end()) {
                if (auto held = it->second.lock()) return kept(std::move(held));
            }
            if (reading_.count(key) == 0) break;
            readDone_.wait(lock);
        }
        reading_.insert(key);
        lock.unlock();
        std::shared_ptr<T> object;
        try {
            object = read();
        } catch (...) {
            lock.lock();
            reading_.erase(key);
            readDone_.notify_all();
            throw;
        }
        lock.lock();
        reading_.erase(key);
        for (auto it = entries_.begin(); it != entries_.end();) {
            it = it->second.expired() ? entries_.erase(it) : std::next(it);
        }
        entries_[key] = object;
        readDone_.notify_all();
        return kept(std::move(object));
    }

    // Objects some system (or the recent list) still holds.
    size_t count() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return size_t(std::count_if(entries_.begin(), entries_.end(), [](const auto& entry) { return !entry.second.expired(); }));
    }

private:
    // Under the lock: object becomes the latest asked for.
    std::shared_ptr<T> kept(std::shared_ptr<T> object) {
        if (keptRecent_ == 0) return object;
        const auto it = std::find(recent_.begin(), recent_.end(), object);
        if (it != recent_.end()) recent_.erase(it);
        recent_.push_front(object);
        if (recent_.size() > keptRecent_) recent_.pop_back();
        return object;
    }

    const size_t keptRecent_;
    mutable std::mutex mutex_;
    std::condition_variable readDone_;
    std::map<Key, std::weak_ptr<T>> entries_;
    std::set<Key> reading_;
    std::deque<std::shared_ptr<T>> recent_;  // latest first
};

}  // namespace kv
