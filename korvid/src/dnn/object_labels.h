// The object detector's classes behind classification labels (the table
// korvid/networks/object_labels.tsv, delivered as a part of the inference model): per class
// index, which COCO classes count, how many detections the label needs and, for labels of
// objects, how a detector score becomes a confidence and how much of the image a box must cover.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "dnn/object_detector.h"
#include "dnn/shown_class.h"
#include "model/error.h"
#include "model/model_blob.h"

namespace kv {

class ObjectLabels {
public:
    // Tab-separated rows: index, label, count (N, N-M or N+), comma list of COCO classes, and
    // optionally the score shown from (0..1, see shownConfidence) and the least box share
    // (0..1); '#' lines and the header row are skipped. INVALID_MODEL on any other content.
    static ObjectLabels parse(const ModelBlob& blob);

    bool covers(size_t classIndex) const { return rows_.count(classIndex) != 0; }
    // Whether the label counts the detector's persons (a number of people).
    bool countsPersons(size_t classIndex) const;
    // The label's probability from the detections on an image of imageSize (0 without
    // evidence): a row with a score shown from calibrates the detection's score, and counts
    // only boxes covering at least its least share of the image.
    double probability(size_t classIndex, const std::vector<ObjectDetection>& objects, cv::Size imageSize) const;

private:
    struct Row {
        std::vector<int> classes;
        size_t least = 1, most = 0;  // most 0: no upper bound
        double shownFrom = 0;        // 0: the detector's score as it is
        double leastShare = 0;
    };
    std::map<size_t, Row> rows_;
};

// Detections of at least this score count towards a number of objects.
constexpr float kCountedScore = 0.4f;

// A detector score as a class confidence: the score shownFrom, above the scores of the wrong
// detections measured for that label, becomes kShownClass; linear below it (weak evidence
// stays low) and from it up to 1 (docs/quality.md).
double shownConfidence(double score, double shownFrom);

}  // namespace kv
