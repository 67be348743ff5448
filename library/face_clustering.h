// Face clustering by average linkage: two groups of faces become one person while the
// mean cosine similarity over all their pairs of faces reaches the threshold, best pair
// first. Unlike single linkage, one face that looks like two people (a bridge) cannot
// chain them together: every face of both groups counts in the mean.
//
// Existing persons keep their ids and faces; new faces join one of them or form new
// persons. Two existing persons are never merged here (that is the user's call).
#pragma once

#include <vector>

#include "cache/store_index.h"

namespace vqfe {

// The calibrated same-person cosine similarity of the face descriptor (the open
// framework's face clustering threshold, "similarity_threshold" of qm_bigbrother: above
// every different-people pair and below the same-person pairs of the quality photos).
constexpr float kSamePersonSimilarity = 0.965f;

// faces: every face of the store with its descriptor (person 0: not yet in a person).
// Faces whose descriptor length differs from the most common one are left out.
VQFeature::PersonAssignment clusterFaces(const std::vector<VQFeature::IndexedFace>& faces,
                                         float threshold = kSamePersonSimilarity);

}  // namespace vqfe
