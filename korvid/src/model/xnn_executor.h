// An ONNX network run by XNNPACK's subgraph runtime: convolutions, pooling, padding,
// activations, element-wise arithmetic, resizing and fully connected layers, laid out NHWC
// inside. The caller's tensors stay NCHW (ONNX's layout): the input is transposed on the way
// in, 4-D outputs on the way out. Runs on the calling thread only (no thread pool).
// Not thread-safe: one executor per system, as for OpenCV's networks.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "model/onnx_reader.h"

typedef struct xnn_runtime* xnn_runtime_t;

namespace kv {

class XnnExecutor {
public:
    // Builds the runtime for graph with the given NCHW input shape, giving the outputs
    // named (graph outputs) in that order. nullptr when an operator, attribute or shape is
    // outside what this executor runs; why then says which.
    static std::unique_ptr<XnnExecutor> build(const OnnxGraph& graph, const std::vector<int>& inputShape,
                                              const std::vector<std::string>& outputs, std::string& why);
    ~XnnExecutor();
    XnnExecutor(const XnnExecutor&) = delete;
    XnnExecutor& operator=(const XnnExecutor&) = delete;

    // REQUIRES: blob is CV_32F of the input shape given to build().
    std::vector<cv::Mat> forward(const cv::Mat& blob);
    // Bytes of the weights and constants the runtime holds (in XNNPACK's packing, or ours).
    size_t weightBytes() const { return weightBytes_; }

    // An element-wise step by a constant per channel that the graph takes first on its input:
    // forward() takes it on the input's planes, before XNNPACK runs.
    struct InputStep {
        enum Kind { Add, Subtract, SubtractFrom, Multiply } kind = Add;
        std::vector<float> values;  // one per channel
    };

private:
    struct Output {
        std::vector<int> shape;  // ONNX (logical) shape
        bool nhwc = false;       // stored channels last: transposed back on the way out
        std::vector<float> buffer;
    };
    XnnExecutor() = default;
    void takeInputSteps(const float* src);

    xnn_runtime_t runtime_ = nullptr;
    std::vector<int> inputShape_;
    std::vector<float> input_;  // NHWC
    std::vector<InputStep> inputSteps_;
    std::vector<float> planes_;  // one image's planes after the input steps
    std::vector<Output> outputs_;
    std::vector<std::vector<float>> statics_;  // constants the runtime reads as it runs
    size_t weightBytes_ = 0;
};

}  // namespace kv
