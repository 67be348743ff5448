// The sensitive-content confidence of kind 33: the content classifier's probabilities
// (content_cues.h) where nothing contradicts them. Porn and sexy are about people: on an
// image without a confirmed person (person_evidence.h) they count only as far as the network
// is surer of them than it ever was of a texture (skin-toned close-ups of a flower, a wood
// grain and a smooth warm wallpaper reached porn 0.57 to 0.77). Hentai, drawn, needs no
// detected person and always counts. Pure functions, thread-safe.
#pragma once

#include "dnn/content_classifier.h"

namespace kv {

// The network's margin for porn or sexy: the larger of the two less the largest of the
// other three classes. Without a person, porn and sexy count by rise(margin, kTextureMargin,
// kSureMargin); the textures above had margins of 0.14 to 0.67.
constexpr double kTextureMargin = 0.75;
constexpr double kSureMargin = 0.9;
double sensitiveMargin(const ContentScores& s);

// porn + hentai + sexyWeight * sexy, at most 1, with porn and sexy weighted as above when
// personSeen is false.
float sensitiveConfidence(const ContentScores& s, double sexyWeight, bool personSeen);

}  // namespace kv
