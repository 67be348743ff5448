#include "model/shared_cascade.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <set>
#include <utility>

#include "model/model_loading.h"
#include "model/network_reads.h"

namespace kv {

SharedCascade::SharedCascade(std::string text, const ContentDigest& digest, std::unique_ptr<cv::CascadeClassifier> first)
    : text_(std::move(text)), digest_(digest) {
    idle_.push_back(std::move(first));  // its capacity, 1, is count_
}

void SharedCascade::detect(const std::function<void(cv::CascadeClassifier&)>& use) const {
    std::unique_ptr<cv::CascadeClassifier> classifier;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!idle_.empty()) {
            classifier = std::move(idle_.back());
            idle_.pop_back();
        }
    }
    if (classifier == nullptr) {
        // Every classifier is busy on another thread: one more, read from the checked text
        // (a few ms, against some 25 ms for the check that made it).
        classifier = std::make_unique<cv::CascadeClassifier>();
        readCascade(text_, "cascade", *classifier);
        std::lock_guard<std::mutex> lock(mutex_);
        idle_.reserve(count_ + 1);  // so that giving it back never allocates
        ++count_;
    }
    struct GiveBack {
        const SharedCascade& cascade;
        std::unique_ptr<cv::CascadeClassifier>& classifier;
        ~GiveBack() {
            std::lock_guard<std::mutex> lock(cascade.mutex_);
            cascade.idle_.push_back(std::move(classifier));
        }
    } giveBack{*this, classifier};
    use(*classifier);
}

size_t SharedCascade::classifierCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return count_;
}

namespace {

// The cascades systems of the process hold, by digest, and the few asked for last, held
// here. A cascade being read is marked so that a second system wanting it waits for it
// rather than reading it again.
struct ProcessCascades {
    std::mutex mutex;
    std::condition_variable readDone;
    std::map<ContentDigest, std::weak_ptr<const SharedCascade>> entries;
    std::set<ContentDigest> reading;
    std::deque<std::shared_ptr<const SharedCascade>> recent;  // latest first

    // Under mutex: cascade becomes the latest asked for.
    void keep(const std::shared_ptr<const SharedCascade>& cascade) {
        const auto it = std::find(recent.begin(), recent.end(), cascade);
        if (it != recent.end()) recent.erase(it);
        recent.push_front(cascade);
        if (recent.size() > kKeptCascades) recent.pop_back();
    }
};

ProcessCascades& processCascades() {
    static ProcessCascades cascades;
    return cascades;
}

std::shared_ptr<const SharedCascade> readSharedCascade(const ModelBlob& blob, const ContentDigest& digest) {
    ++cascadeReads;
    std::string text = cascadeText(blob);
    auto first = std::make_unique<cv::CascadeClassifier>();
    readCascade(text, blob.name, *first);
    return std::make_shared<const SharedCascade>(std::move(text), digest, std::move(first));
}

}  // namespace

std::shared_ptr<const SharedCascade> sharedCascade(const ModelBlob& blob) {
    // Empty bytes digest like any others and fail their check with its reason.
    const ContentDigest digest = digestOf(blob.data, blob.size);
    ProcessCascades& shared = processCascades();
    std::unique_lock<std::mutex> lock(shared.mutex);
    for (;;) {
        if (auto it = shared.entries.find(digest); it != shared.entries.end()) {
            if (auto cascade = it->second.lock()) {
                shared.keep(cascade);
                return cascade;
            }
        }
        if (shared.reading.count(digest) == 0) break;
        // Another system reads it; should that read fail, this one tries for itself.
        shared.readDone.wait(lock);
    }
    shared.reading.insert(digest);
    lock.unlock();
    std::shared_ptr<const SharedCascade> cascade;
    try {
        cascade = readSharedCascade(blob, digest);
    } catch (...) {
        lock.lock();
        shared.reading.erase(digest);
        shared.readDone.notify_all();
        throw;
    }
    lock.lock();
    shared.reading.erase(digest);
    for (auto it = shared.entries.begin(); it != shared.entries.end();) {
        it = it->second.expired() ? shared.entries.erase(it) : std::next(it);
    }
    shared.entries[digest] = cascade;
    shared.keep(cascade);
    shared.readDone.notify_all();
    return cascade;
}

}  // namespace kv
