// What the nodes make of the content classifier's probabilities (dnn/content_classifier.h):
// the sensitive-content confidence, the drawing labels of the classification, and whether
// an animal or a person found on a picture stands (a drawing keeps only strong detections).
#pragma once

#include "dnn/content_classifier.h"

namespace kv {

// Porn and hentai count whole, sexy (swimwear, lingerie: suggestive, not explicit) by
// sexyWeight; at most 1.
float sensitiveConfidence(const ContentScores& s, double sexyWeight);

// The classification's drawing labels: anime is a drawing in colour, a sketch one in grey or
// few colours (colourfulness: Hasler-Suesstrunk / 100, as the scene evidence measures it);
// 0.75 of the drawn share at most.
double animeCue(const ContentScores& s, double colourfulness);
double sketchCue(const ContentScores& s, double colourfulness);

// A picture the classifier takes for a drawing (drawn share at least this) keeps only the
// detections at least as strong as the node's strong score.
constexpr float kDrawnPicture = 0.5f;
bool standsOnPicture(const ContentScores& s, float detectionScore, float strongScore);

}  // namespace kv
