// GrabCut for the matting nodes: the masks of OpenCV's cv::grabCut (the same colour models,
// weights and cut), with the graph built over the undecided pixels only. A fixed pixel never
// changes side (its terminal weight, 9 x 50, exceeds the sum of its eight neighbour weights),
// so its edges join its free neighbours' terminal weights instead: the seeds of the matting
// nodes leave about half the image fixed, and the graph work shrinks with it. The graph is
// built once: each iteration after the first changes the colour terms of the flow found
// before (nodes/cut_graph.h) instead of cutting anew.
#pragma once

#include <opencv2/core.hpp>

namespace kv {

// When GrabCut may stop before its last iteration: once an iteration after the first changes
// fewer than 1 in `settled` pixels (0: never), checked after iterations up to `lastCheck`
// (counted from 0; -1: after every one).
struct Convergence {
    int settled = 0;
    int lastCheck = -1;
};

// image: 8-bit BGR; seed: 8-bit GC_BGD, GC_FGD, GC_PR_BGD, GC_PR_FGD of the image's size.
// Returns 255 on (probable) foreground, 0 elsewhere; all 0 when the seed lacks either side.
// The initial clusters come from OpenCV's thread RNG, reseeded here, so equal inputs give
// equal masks.
cv::Mat grabCut(const cv::Mat& image, cv::Mat seed, int iterations, Convergence until = {});

}  // namespace kv
