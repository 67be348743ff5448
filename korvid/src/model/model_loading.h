// Reading model content from the bytes the resource finder delivered. Models are either
// OpenCV cascade XML (Debian's opencv-data files) or parameter files of our own format:
// OpenCV YAML whose "format" is "korvid-params" and whose "kind" names the node family
// that reads it. Every loader throws Error(INVALID_MODEL) on unusable content.
#pragma once

#include <string>

#include <opencv2/core/persistence.hpp>
#include <opencv2/objdetect.hpp>

#include "model/error.h"
#include "model/model_blob.h"

namespace kv {

// Opens blob as OpenCV FileStorage text held in memory.
cv::FileStorage openModelStorage(const ModelBlob& blob);

// Cascade XML checked and rewritten for OpenCV (cascade_check.h), for readCascade.
std::string cascadeText(const ModelBlob& blob);
// A cascade classifier read from cascadeText's output; name names the model in the error.
void readCascade(const std::string& text, const std::string& name, cv::CascadeClassifier& out);

// A parameter file of the given kind.
cv::FileStorage openParams(const ModelBlob& blob, const std::string& kind);

// Number under key of a parameter file, or fallback when absent.
double paramOr(const cv::FileStorage& fs, const char* key, double fallback);

}  // namespace kv
