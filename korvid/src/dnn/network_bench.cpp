// Forward time of each converted network in OpenCV DNN, in the XNNPACK executor and in the
// oneDNN executor (where they run the network) on one thread, beside the time of the same file in ONNX Runtime
// measured just before (korvid/networks/ort_bench.js, on
// standard input: MODEL CHANNELS HEIGHT WIDTH MILLISECONDS per line). Both are medians of
// the processor time of warm runs on a zero input, so a machine shared with other work
// slows neither side's figure much.
// Each row also sets the network's pass against the core's peak: its multiply-adds (in
// convolutions and matrix products, counted by the oneDNN executor) over the time, against
// the rate of a convolution that runs at the core's fused multiply-add rate.
//   usage: node ort_bench.js ... | korvid_network_bench MODEL_DIR [RUNS]
//          korvid_network_bench --profile MODEL_FILE CHANNELS HEIGHT WIDTH
//            (OpenCV's time per layer of one network, largest first)
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <dnnl.hpp>
#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

#include "model/clocks.h"
#include "model/onnx_clip_form.h"
#include "model/dnnl_executor.h"
#include "model/one_openmp_thread.h"
#include "model/xnn_executor.h"
#include "network_declarations.h"

namespace {

// The runtime the framework tries first for a model, as its declaration says.
bool declaredXnnpackFirst(const std::string& model) {
    for (const kv::NetworkInput* in : kv::declared::kAll) {
        if (model == in->model) return in->xnnpackFirst;
    }
    return false;
}

cv::dnn::Net readNet(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
    if (bytes.empty()) throw std::runtime_error(path + ": missing or empty");
    // As the framework reads it (src/dnn/network.cpp).
    const std::vector<uint8_t> clips = kv::clipBoundsAsAttributes(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return clips.empty() ? cv::dnn::readNetFromONNX(bytes.data(), bytes.size())
                         : cv::dnn::readNetFromONNX(reinterpret_cast<const char*>(clips.data()), clips.size());
}

// The median processor time in ms of runs calls of run, after one untimed call.
template <typename Run>
double medianCpuMs(int runs, Run run) {
    run();
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const double start = kv::clockMs(kv::Clock::ProcessCpu);
        run();
        times.push_back(kv::clockMs(kv::Clock::ProcessCpu) - start);
    }
    std::nth_element(times.begin(), times.begin() + runs / 2, times.end());
    return times[size_t(runs / 2)];
}

struct Runner {
    cv::dnn::Net net;
    cv::Mat blob;
    std::vector<std::string> names;
    std::vector<cv::Mat> outs;
    std::unique_ptr<kv::XnnExecutor> xnn;    // when set, once() runs it instead of OpenCV
    std::unique_ptr<kv::DnnlExecutor> dnnl;  // when set, once() runs it instead of the others

    Runner(const std::string& path, int c, int h, int w) : net(readNet(path)) {
        const int shape[] = {1, c, h, w};
        blob = cv::Mat(4, shape, CV_32F, cv::Scalar(0));
        names = net.getUnconnectedOutLayersNames();
    }
    // Moves the runner to XNNPACK (or oneDNN); false (and why) when the executor does not run
    // the network.
    bool useExecutor(const std::string& path, bool onednn, std::string& why) {
        std::ifstream in(path, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
        kv::OnnxGraph graph;
        why = kv::readOnnxGraph(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), graph);
        const std::vector<int> shape{blob.size[0], blob.size[1], blob.size[2], blob.size[3]};
        if (!why.empty()) return false;
        if (onednn) dnnl = kv::DnnlExecutor::build(graph, shape, names, why);
        else xnn = kv::XnnExecutor::build(graph, shape, names, why);
        return onednn ? dnnl != nullptr : xnn != nullptr;
    }
    void once() {
        if (dnnl != nullptr) {
            outs = dnnl->forward(blob);
            return;
        }
        if (xnn != nullptr) {
            outs = xnn->forward(blob);
            return;
        }
        net.setInput(blob);
        net.forward(outs, names);
    }
    double medianMs(int runs) {
        return medianCpuMs(runs, [this] { once(); });
    }
};

// GFLOP/s of a 3 x 3 convolution of 128 channels at 52 x 52 in oneDNN, one thread: the
// core's peak, since it runs at the rate of a loop of nothing but fused multiply-adds (on the
// bench machine 116 against 113 to 116 GFLOP/s). Median of 30 runs.
double peakGflops() {
    using dnnl::memory;
    constexpr int kChannels = 128, kSide = 52;
    const kv::OneThread oneThread;
    const dnnl::engine engine(dnnl::engine::kind::cpu, 0);
    dnnl::stream stream(engine);
    const auto desc = [](memory::dims dims, memory::format_tag tag) { return memory::desc(dims, memory::data_type::f32, tag); };
    const dnnl::convolution_forward::desc d(dnnl::prop_kind::forward_inference, dnnl::algorithm::convolution_direct,
                                           desc({1, kChannels, kSide, kSide}, memory::format_tag::any),
                                           desc({kChannels, kChannels, 3, 3}, memory::format_tag::any),
                                           desc({kChannels}, memory::format_tag::x),
                                           desc({1, kChannels, kSide, kSide}, memory::format_tag::any), {1, 1}, {1, 1}, {1, 1});
    const dnnl::convolution_forward::primitive_desc pd(d, engine);
    const memory src(pd.src_desc(), engine), weights(pd.weights_desc(), engine), bias(pd.bias_desc(), engine), dst(pd.dst_desc(), engine);
    for (const memory& m : {src, weights, bias}) std::fill_n(static_cast<float*>(m.get_data_handle()), m.get_desc().get_size() / sizeof(float), 0.5f);
    const dnnl::convolution_forward conv(pd);
    const double ms = medianCpuMs(30, [&] {
        conv.execute(stream, {{DNNL_ARG_SRC, src}, {DNNL_ARG_WEIGHTS, weights}, {DNNL_ARG_BIAS, bias}, {DNNL_ARG_DST, dst}});
        stream.wait();
    });
    return 2.0 * kChannels * kChannels * 9 * kSide * kSide / ms / 1e6;
}

int profile(char** argv) {
    Runner runner(argv[2], std::atoi(argv[3]), std::atoi(argv[4]), std::atoi(argv[5]));
    runner.once();
    // The profile holds wall times of the last forward pass: the least of several runs per
    // layer leaves out the moments another process had the core.
    std::vector<double> best;
    for (int run = 0; run < 15; ++run) {
        runner.once();
        std::vector<double> layerTimes;
        runner.net.getPerfProfile(layerTimes);
        if (best.empty()) best = layerTimes;
        for (size_t i = 0; i < best.size() && i < layerTimes.size(); ++i) best[i] = std::min(best[i], layerTimes[i]);
    }
    const auto layerNames = runner.net.getLayerNames();
    std::vector<std::pair<double, std::string>> rows;
    double total = 0;
    for (size_t i = 0; i < best.size() && i < layerNames.size(); ++i) {
        const auto layer = runner.net.getLayer(layerNames[i]);
        rows.emplace_back(best[i] * 1e3 / cv::getTickFrequency(), layer->type + " " + layerNames[i]);
        total += rows.back().first;
    }
    std::sort(rows.rbegin(), rows.rend());
    // OpenCV times its layers on its own tick count, a wall clock.
    std::printf("total %.2f ms wall in %zu layers (least of 15 runs each)\n", total, rows.size());
    for (const auto& row : rows) std::printf("%8.3f ms wall  %s\n", row.first, row.second.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    cv::setNumThreads(1);
    if (argc == 6 && std::string(argv[1]) == "--profile") return profile(argv);
    if (argc != 2 && argc != 3) {
        std::cerr << "usage: " << argv[0] << " MODEL_DIR [RUNS] < ort_bench.js output\n"
                  << "       " << argv[0] << " --profile MODEL_FILE CHANNELS HEIGHT WIDTH\n";
        return 2;
    }
    const int runs = argc == 3 ? std::max(1, std::atoi(argv[2])) : 30;
    const double peak = peakGflops();
    std::printf("median %s of warm runs on one thread; the core's peak %.1f GFLOP/s\n", kv::clockUnit(kv::Clock::ProcessCpu), peak);
    std::printf("%-24s %14s %12s %12s %10s %8s %8s %8s %7s %6s %6s\n", "network", "OpenCV DNN ms", "XNNPACK ms", "oneDNN ms", "ORT ms",
                "OpenCV", "ours", "runtime", "GFLOP", "ours%", "ORT%");
    std::string model;
    int c = 0, h = 0, w = 0;
    double ortMs = 0;
    int status = 0;
    while (std::cin >> model >> c >> h >> w >> ortMs) {
        try {
            // The three runtimes of the framework one after the other; "ours" is the ratio of
            // the one the framework runs the network with (the declared one where it runs the
            // network, else the other, as readNetwork chooses) to ORT.
            const std::string path = std::string(argv[1]) + "/" + model + ".model";
            Runner runner(path, c, h, w);
            const double ms = runner.medianMs(runs);
            std::string why, dnnlWhy;
            const double xnnMs = runner.useExecutor(path, false, why) ? runner.medianMs(runs) : -1;
            const double dnnlMs = runner.useExecutor(path, true, dnnlWhy) ? runner.medianMs(runs) : -1;
            double ours = ms;
            const char* runtime = "OpenCV";
            const bool xnnFirst = declaredXnnpackFirst(model);
            if (xnnMs >= 0 && (xnnFirst || dnnlMs < 0)) ours = xnnMs, runtime = "XNNPACK";
            else if (dnnlMs >= 0) ours = dnnlMs, runtime = "oneDNN";
            const auto cell = [](double v) { return v < 0 ? std::string("-") : std::to_string(v).substr(0, std::to_string(v).find('.') + 3); };
            // A pass's share of the peak: its work at the peak's rate over its time.
            const double gflop = runner.dnnl != nullptr ? 2 * runner.dnnl->multiplyAdds() / 1e9 : 0;
            const auto share = [&](double passMs) { return gflop > 0 ? std::to_string(int(100 * gflop / peak * 1e3 / passMs + 0.5)) : std::string("-"); };
            std::printf("%-24s %14.2f %12s %12s %10.2f %8.2f %8.2f %8s %7.3f %6s %6s", model.c_str(), ms, cell(xnnMs).c_str(),
                        cell(dnnlMs).c_str(), ortMs, ms / ortMs, ours / ortMs, runtime, gflop, share(ours).c_str(), share(ortMs).c_str());
            if (xnnMs < 0) std::printf("   (XNNPACK: %s)", why.c_str());
            if (dnnlMs < 0) std::printf("   (oneDNN: %s)", dnnlWhy.c_str());
            std::printf("\n");
        } catch (const std::exception& e) {
            std::cerr << model << ": " << e.what() << "\n";
            status = 1;
        }
    }
    return status;
}
