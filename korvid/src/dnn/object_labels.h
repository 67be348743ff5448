// The object detector's classes behind classification labels (the table
// korvid/networks/object_labels.tsv, delivered as a part of the inference model): per class
// index, which COCO classes count and how many detections the label needs.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "dnn/object_detector.h"
#include "model/error.h"
#include "model/model_blob.h"

namespace kv {

class ObjectLabels {
public:
    // Tab-separated rows: index, label, count (N, N-M or N+), comma list of COCO classes;
    // '#' lines and the header row are skipped. INVALID_MODEL on any other content.
    static ObjectLabels parse(const ModelBlob& blob);

    bool covers(size_t classIndex) const { return rows_.count(classIndex) != 0; }
    // Whether the label counts the detector's persons (a number of people).
    bool countsPersons(size_t classIndex) const;
    // The label's probability from the detections (0 without evidence).
    double probability(size_t classIndex, const std::vector<ObjectDetection>& objects) const;

private:
    struct Row {
        std::vector<int> classes;
        size_t least = 1, most = 0;  // most 0: no upper bound
    };
    std::map<size_t, Row> rows_;
};

// Detections of at least this score count towards a number of objects.
constexpr float kCountedScore = 0.4f;

}  // namespace kv
