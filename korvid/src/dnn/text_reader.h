// Text measured by Tesseract (Debian's libtesseract, English LSTM model): the words it reads
// with confidence, their characters, lines and the share of the image their boxes cover.
// One engine per process, loaded on first use and used under a lock (an engine instance is
// not thread-safe). Without Tesseract in the build, or without its English data, nothing is
// measured: the evidence says so and stays at zero.
#pragma once

#include <opencv2/core.hpp>

namespace kv {

struct TextEvidence {
    bool measured = false;  // the engine read the image (false: no engine, no data, or a shape it is never given)
    int words = 0;          // words of at least two letters or digits read with confidence >= kWordConfidence
    int characters = 0;     // letters and digits of those words
    int longWords = 0;      // those of at least four letters or digits: on foliage or gravel the engine reads short ones ("SS", "AN")
    int lines = 0;          // text lines holding at least one of them
    double coverage = 0;    // share of the image's area covered by their boxes
};

// Tesseract's word confidence (0..100) a word needs to count.
constexpr float kWordConfidence = 70.f;

// Reads a grey (CV_8UC1) image. It is scaled so that its longer side lies between 1000 and
// 1600 pixels (at most doubled), framed by a margin of its border colour; images with a
// side under 8 pixels or longer than 20 times their width are not read. Recognition stops
// after kReadDeadlineMs. Never throws on an image; an empty or non-grey one is not read.
constexpr int kReadDeadlineMs = 3000;
TextEvidence readText(const cv::Mat& grey);

// Whether the engine and its English data are available (loads them on the first call).
bool textReaderAvailable();

}  // namespace kv
