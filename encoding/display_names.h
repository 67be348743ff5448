// Short English names for the labels the analyses report: each of the 208 classification
// labels ("2252_alone" -> "one person", "xuejing_c2" -> "snow scene") and each scene label
// ("solid_colour" -> "plain colour"). For people reading results (the vqfe summary and
// pictures, the Java helpers); the blobs keep the system's own labels. Thread-safe.
#pragma once

#include <string>
#include <vector>

namespace VQFeature {

/// Labels and classes under this confidence are not shown to people (the vqfe summary and
/// pictures, the Java helpers' shown classes): the object detector's boxes under 0.3 are
/// mostly wrong (a mobile phone on the cat), and a scene cue under it lacks its evidence.
/// The blobs keep every value. The open framework scales its class confidences to the
/// same floor (kv::kShownClass; display_names_test checks that they agree).
constexpr float kShownConfidence = 0.3f;

/// The short English name of a label (a classification label such as "2252_alone" or a
/// scene label such as "sunset"), or label itself when it is not one of the known labels.
std::string displayName(const std::string& label);

/// The labels whose display name is name in any case ("christmas", "One Person"), in no particular order (empty when none is;
/// several where two labels share a name, such as a scene label and a class).
std::vector<std::string> labelsNamed(const std::string& name);

}  // namespace VQFeature
