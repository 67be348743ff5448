// An ONNX network run by oneDNN's primitives: the operators of XnnExecutor's set, each a
// primitive built once. Convolutions pick their own (blocked) layouts, the operators after
// them take the layout they are given, and reorders come only where an operator needs a
// plain one (reshapes, matrix products, transposes, the outputs). An activation, or an
// addition of an earlier result, right after a convolution whose output has no other reader
// is fused into the convolution. Intermediate tensors share buffers once their readers are
// done. Runs on the calling thread only (one OpenMP thread while it runs). Thread-safe:
// passes on several threads at once share the primitives and weights, each with buffers of
// its own (the first pass's, or a copy made when every set is busy and kept for the next).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "model/onnx_reader.h"

namespace kv {

class DnnlExecutor {
public:
    // Builds the primitives for graph with the given NCHW input shape, giving the outputs
    // named (graph outputs) in that order. nullptr when an operator, attribute or shape is
    // outside what this executor runs, or oneDNN refuses it; why then says which.
    static std::unique_ptr<DnnlExecutor> build(const OnnxGraph& graph, const std::vector<int>& inputShape,
                                               const std::vector<std::string>& outputs, std::string& why);
    ~DnnlExecutor();
    DnnlExecutor(const DnnlExecutor&) = delete;
    DnnlExecutor& operator=(const DnnlExecutor&) = delete;

    // REQUIRES: blob is CV_32F of the input shape given to build(). Outputs in ONNX layout.
    std::vector<cv::Mat> forward(const cv::Mat& blob);
    // Bytes of the weights and constants the primitives read, in oneDNN's layouts.
    size_t weightBytes() const { return weightBytes_; }
    // Bytes of the buffers the intermediate tensors share (for tests and measurement).
    size_t bufferBytes() const { return bufferBytes_; }
    // Convolutions that took an activation or an addition into themselves (for tests).
    size_t fusedSteps() const { return fusedSteps_; }
    // Multiply-adds of a pass in its convolutions and matrix products, the work a runtime
    // cannot skip (for measurement: a pass's time against the core's peak).
    double multiplyAdds() const { return multiplyAdds_; }

    struct State;

private:
    DnnlExecutor();
    std::unique_ptr<State> state_;
    size_t weightBytes_ = 0;
    size_t bufferBytes_ = 0;
    size_t fusedSteps_ = 0;
    double multiplyAdds_ = 0;
};

}  // namespace kv
