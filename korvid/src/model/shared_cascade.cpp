#include "model/shared_cascade.h"

#include <utility>

#include "model/content_digest.h"
#include "model/model_loading.h"
#include "model/network_reads.h"
#include "model/process_store.h"

namespace kv {

SharedCascade::SharedCascade(std::string text, std::unique_ptr<cv::CascadeClassifier> first) : text_(std::move(text)) {
    classifiers_.add(std::move(first));
}

void SharedCascade::detect(const std::function<void(cv::CascadeClassifier&)>& use) const {
    // When every classifier is busy on another thread, one more is read from the checked
    // text (a few ms, against some 25 ms for the check that made it).
    const auto classifier = classifiers_.take([&] {
        auto made = std::make_unique<cv::CascadeClassifier>();
        readCascade(text_, "cascade", *made);
        return made;
    });
    use(*classifier);
}

size_t SharedCascade::classifierCount() const { return classifiers_.count(); }

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
