// Forward time of each converted network in OpenCV DNN on one thread, beside the time of
// the same network in TF.js's WebAssembly backend measured just before (korvid/networks/
// bench.js, on standard input: MODEL CHANNELS HEIGHT WIDTH MILLISECONDS per line).
//   usage: node bench.js ... | korvid_network_bench MODEL_DIR
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " MODEL_DIR < bench.js output\n";
        return 2;
    }
    cv::setNumThreads(1);
    std::printf("%-24s %14s %14s %8s\n", "network", "OpenCV DNN ms", "TF.js wasm ms", "ratio");
    std::string model;
    int c = 0, h = 0, w = 0;
    double wasmMs = 0;
    int status = 0;
    while (std::cin >> model >> c >> h >> w >> wasmMs) {
        std::ifstream in(std::string(argv[1]) + "/" + model + ".model", std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
        try {
            cv::dnn::Net net = cv::dnn::readNetFromONNX(bytes.data(), bytes.size());
            const int shape[] = {1, c, h, w};
            const cv::Mat blob(4, shape, CV_32F, cv::Scalar(0));
            std::vector<cv::Mat> outs;
            const auto names = net.getUnconnectedOutLayersNames();
            auto once = [&] {
                net.setInput(blob);
                net.forward(outs, names);
            };
            once();
            constexpr int kRuns = 20;
            const auto start = std::chrono::steady_clock::now();
            for (int i = 0; i < kRuns; ++i) once();
            const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count() / kRuns;
            std::printf("%-24s %14.2f %14.2f %8.2f\n", model.c_str(), ms, wasmMs, ms / wasmMs);
        } catch (const cv::Exception& e) {
            std::cerr << model << ": " << e.what() << "\n";
            status = 1;
        }
    }
    return status;
}
