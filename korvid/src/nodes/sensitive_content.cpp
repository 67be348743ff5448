#include "nodes/sensitive_content.h"

#include <algorithm>

#include "nodes/content_cues.h"
#include "nodes/cue_math.h"

namespace kv {

double sensitiveMargin(const ContentScores& s) {
    return double(std::max(s[Porn], s[Sexy])) - std::max({s[Drawing], s[Hentai], s[Neutral]});
}

float sensitiveConfidence(const ContentScores& s, double sexyWeight, bool personSeen) {
    if (personSeen) return sensitiveConfidence(s, sexyWeight);
    const float weight = static_cast<float>(rise(sensitiveMargin(s), kTextureMargin, kSureMargin));
    ContentScores weighed = s;
    weighed[Porn] *= weight;
    weighed[Sexy] *= weight;
    return sensitiveConfidence(weighed, sexyWeight);
}

}  // namespace kv
