#include "model/shared_cascade.h"

#include <utility>

#include "model/content_digest.h"
#include "model/model_loading.h"
#include "model/network_reads.h"
#include "model/process_store.h"

namespace kv {

SharedCascade::SharedCascade(std::string text, std::unique_ptr<cv::CascadeClassifier> first) : text_(std::move(text)) {
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

// The cascades systems of the process hold, by digest, and the few asked for last.
ProcessStore<ContentDigest, const SharedCascade>& processCascades() {
    static ProcessStore<ContentDigest, const SharedCascade> cascades(kKeptCascades);
    return cascades;
}

std::shared_ptr<const SharedCascade> readSharedCascade(const ModelBlob& blob) {
    ++cascadeReads;
    std::string text = cascadeText(blob);
    auto first = std::make_unique<cv::CascadeClassifier>();
    readCascade(text, blob.name, *first);
    return std::make_shared<const SharedCascade>(std::move(text), std::move(first));
}

}  // namespace

std::shared_ptr<const SharedCascade> sharedCascade(const ModelBlob& blob) {
    // Empty bytes digest like any others and fail their check with its reason.
    const ContentDigest digest = digestOf(blob.data, blob.size);
    return processCascades().get(digest, [&] { return readSharedCascade(blob); });
}

}  // namespace kv
