// What the nodes make of the text reader (dnn/text_reader.h): the scene's "document", the
// classification's text and screenshots. Tesseract reads an image only when a cheap
// pre-test finds marks of a letter's size standing in lines; the reading is shared by the
// nodes of an execute through the memo. Every cue lies in 0..kMaxCue and is 0 when no text
// was measured.
#pragma once

#include <opencv2/core.hpp>

#include "dnn/text_reader.h"
#include "graph/execute_memo.h"

namespace kv {

struct TextScene {
    bool read = false;        // the pre-test passed and Tesseract was asked
    TextEvidence text;        // what it read (zero when not read)
    double flatShare = 0;     // the image in exactly uniform 3 x 3 patches (drawn UI, not a photo)
    double straightEdges = 0; // share of the edges lying on long horizontal or vertical runs
};

// Marks of a letter's size (dark on light or light on dark) standing in a line with at
// least four of a similar height beside them, on a grey copy of at most 768 pixels.
int textLikeMarks(const cv::Mat& bgr);
// The pre-test: fewer marks in lines than this and Tesseract is not asked (text: 10 and
// more, photos without text 0 to 6, a palace's roof tiles 64; docs/quality.md).
constexpr int kMinTextMarks = 8;

TextScene measureText(const cv::Mat& bgr);
// The same, once per execute for all the nodes that ask (memo null: measured).
TextScene sharedText(const cv::Mat& bgr, ExecuteMemo* memo);

// The scene's "document": many words covering a real part of the image.
double documentCue(const TextScene& t);
// The classification's text: words read with confidence, a few suffice (a sign, a label).
double textCue(const TextScene& t);
// A screenshot: text on flat drawn colours with straight edges; at most 0.6 (a photo of a
// flat poster looks alike).
double screenshotCue(const TextScene& t);

}  // namespace kv
