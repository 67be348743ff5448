// The confidence from which a class is shown to the user (the summary's floor). The engine
// that reads the framework's results shows classes from the same value
// (VQFeature::kShownConfidence); its display_names_test fails when the two differ.
#pragma once

namespace kv {

constexpr double kShownClass = 0.3;

}  // namespace kv
