// The long fixed texts behind CoverUtil and VantorGraph: the built-in graph per
// algorithm kind, the two named graphs and the default model list. Internal header;
// callers go through CoverUtil / VantorGraph.
#pragma once

namespace VQFeature {
namespace GraphTexts {

extern const char* const kKind4;
extern const char* const kKind7;
extern const char* const kKind8;
extern const char* const kKind9;
extern const char* const kKind10;
extern const char* const kKind12;
extern const char* const kKind25;
extern const char* const kKind29;
extern const char* const kKind30;
extern const char* const kKind33;
extern const char* const kKind58;
extern const char* const kKind60;
extern const char* const kKind71;
extern const char* const kKind95;
// Kind 121 is kKind121Head + kClassLabels208 + kKind121Middle + kClassThresholds208 +
// kKind121Tail.
extern const char* const kKind121Head;
extern const char* const kKind121Middle;
extern const char* const kKind121Tail;
extern const char* const kClassLabels208;
extern const char* const kClassThresholds208;
extern const char* const kKind130;

extern const char* const kGradingGraph;
extern const char* const kRecognitionGraph;
extern const char* const kDefaultModels;

}  // namespace GraphTexts
}  // namespace VQFeature
