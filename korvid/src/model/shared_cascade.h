// Cascade classifiers (model_loading.h) kept by content for every system of the process, as
// networks are (network.h): checking and parsing the cat-face cascade costs tens of ms, which
// a graph reload, a second pet node of the same graph or a second `vqfe extract` job would
// otherwise pay again.
//
// A cv::CascadeClassifier keeps the state of a detection inside itself, so one object never
// runs two detections at once. A SharedCascade therefore holds the checked cascade text and
// a pool of classifiers read from it: a detection takes an idle one, or reads a new one when
// every classifier is busy on other threads, and gives it back afterwards. The pool holds as
// many classifiers as detections ever ran at once on it (one per thread at most).
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include <opencv2/objdetect.hpp>

#include "model/idle_pool.h"
#include "model/model_blob.h"

namespace kv {

// A checked cascade and its classifiers. Thread-safe.
class SharedCascade {
public:
    // text: checkedCascadeText's output; first: the classifier read from it at load.
    SharedCascade(std::string text, std::unique_ptr<cv::CascadeClassifier> first);
    // Calls use with a classifier that no other call uses meanwhile; it goes back to the pool
    // afterwards, also when use throws.
    void detect(const std::function<void(cv::CascadeClassifier&)>& use) const;
    // Classifiers the pool holds (for tests).
    size_t classifierCount() const;

private:
    const std::string text_;
    mutable IdlePool<cv::CascadeClassifier> classifiers_;
};

// The cascade of blob's bytes that a system of this process holds or loaded lately, or else
// blob checked and read anew. Throws Error(INVALID_MODEL) when blob is no cascade.
// Thread-safe; a system wanting a cascade that another is reading waits for that read.
// Besides the cascades systems hold, the process keeps the few read or asked for last
// (kKeptCascades): a graph's nodes go before its reload loads new ones, which then find
// their cascade. Models hold one cascade or two, so this bounds what stays.
std::shared_ptr<const SharedCascade> sharedCascade(const ModelBlob& blob);
constexpr size_t kKeptCascades = 4;

}  // namespace kv
