// Each converted network, run by OpenCV DNN and, where they run every operator, by the
// XNNPACK and oneDNN executors, against the reference runtime's outputs on the same image
// (written by korvid/networks/reference.js), and each executor against OpenCV: max absolute
// difference 1e-3 (1e-5 relative for values beyond 100; 2e-5 for the executors). The network's input is made here from the image's
// pixels the way the framework makes it, through the network's declared normalisation
// (networks.json): where the reference runs the network's own normalisation (MoveNet, whose
// graph scales its pixels, and face-api's networks), a wrong declaration fails here.
//   usage: korvid_network_parity_test REFERENCE_DIR MODEL_DIR
#include <algorithm>
#include <cmath>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <opencv2/dnn.hpp>

#include "model/onnx_clip_form.h"
#include "model/dnnl_executor.h"
#include "model/xnn_executor.h"
#include "network_declarations.h"

namespace {

// The parity image's pixels, in the network's plane order (korvid/networks/reference_input.js).
std::vector<uint8_t> parityPixels(size_t count) {
    std::vector<uint8_t> out(count);
    uint32_t s = 12345;
    for (uint8_t& v : out) {
        s = s * 1103515245u + 12345u;
        v = static_cast<uint8_t>((s >> 16) & 255);
    }
    return out;
}

// The input blob the framework makes of the parity image for network in.
cv::Mat declaredInput(const kv::NetworkInput& in) {
    const std::vector<uint8_t> px = parityPixels(size_t(in.channels) * size_t(in.height) * size_t(in.width));
    cv::Mat image(in.height, in.width, CV_8UC(in.channels));
    for (int y = 0; y < in.height; ++y) {
        for (int x = 0; x < in.width; ++x) {
            for (int k = 0; k < in.channels; ++k) {
                // Image channels are blue, green, red; plane k is red first unless declared BGR.
                const int channel = in.channels == 1 || in.bgr ? k : 2 - k;
                image.ptr<uint8_t>(y)[x * in.channels + channel] = px[(size_t(y) * size_t(in.width) + size_t(x)) * size_t(in.channels) + size_t(k)];
            }
        }
    }
    return kv::inputBlob(in, image);
}

const kv::NetworkInput* declaration(const std::string& model) {
    for (const kv::NetworkInput* in : kv::declared::kAll) {
        if (model == in->model) return in;
    }
    return nullptr;
}

std::vector<char> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), {});
}

// The largest difference of got from expected, and whether every value is within the bound.
struct Difference {
    double worst = 0;
    bool ok = true;
};

Difference difference(const cv::Mat& got, const float* expected, size_t count, double relative = 1e-5) {
    if (got.total() != count) return {INFINITY, false};
    Difference d;
    const float* g = got.ptr<float>();
    for (size_t k = 0; k < count; ++k) {
        const double diff = std::fabs(double(g[k]) - double(expected[k]));
        d.ok = d.ok && diff <= std::max(1e-3, relative * std::fabs(double(expected[k])));
        d.worst = std::max(d.worst, std::isnan(diff) ? INFINITY : diff);
    }
    return d;
}

std::vector<float> readFloats(const std::string& path) {
    std::vector<char> bytes = readFile(path);
    std::vector<float> values(bytes.size() / sizeof(float));
    std::copy(bytes.begin(), bytes.begin() + static_cast<long>(values.size() * sizeof(float)),
              reinterpret_cast<char*>(values.data()));
    return values;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: " << argv[0] << " REFERENCE_DIR MODEL_DIR\n";
        return 2;
    }
    const std::string ref = argv[1], models = argv[2];
    std::ifstream manifest(ref + "/manifest.txt");
    std::string line;
    int checked = 0, failed = 0;
    while (std::getline(manifest, line)) {
        std::istringstream fields(line);
        std::string model, name;
        int c = 0, h = 0, w = 0;
        size_t count = 0;
        fields >> model >> c >> h >> w;
        std::vector<std::pair<std::string, size_t>> outputs;
        while (fields >> name >> count) outputs.emplace_back(name, count);
        std::vector<char> bytes = readFile(models + "/" + model + ".model");
        const kv::NetworkInput* in = declaration(model);
        if (bytes.empty() || in == nullptr || in->channels != c || in->height != h || in->width != w) {
            std::cerr << model << ": converted network missing, or not declared with the reference's input size\n";
            ++failed;
            continue;
        }
        cv::Mat input = declaredInput(*in);
        std::vector<std::string> names;
        for (const auto& o : outputs) names.push_back(o.first);
        std::vector<cv::Mat> outs;
        try {
            // As the framework reads it (src/dnn/network.cpp).
            const std::vector<uint8_t> clips = kv::clipBoundsAsAttributes(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            cv::dnn::Net net = clips.empty() ? cv::dnn::readNetFromONNX(bytes.data(), bytes.size())
                                             : cv::dnn::readNetFromONNX(reinterpret_cast<const char*>(clips.data()), clips.size());
            net.setInput(input);
            net.forward(outs, names);
        } catch (const cv::Exception& e) {
            std::cerr << model << ": " << e.what() << "\n";
            ++failed;
            continue;
        }
        // The executors the framework chooses from, where they run this network.
        std::vector<cv::Mat> fast, dnnlOuts;
        kv::OnnxGraph graph;
        std::string why = kv::readOnnxGraph(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), graph);
        std::string dnnlWhy = why;
        std::unique_ptr<kv::XnnExecutor> xnn;
        std::unique_ptr<kv::DnnlExecutor> dnnl;
        if (why.empty()) xnn = kv::XnnExecutor::build(graph, {1, c, h, w}, names, why);
        if (dnnlWhy.empty()) dnnl = kv::DnnlExecutor::build(graph, {1, c, h, w}, names, dnnlWhy);
        if (xnn != nullptr) fast = xnn->forward(input);
        else std::cout << "     " << model << " does not run in XNNPACK: " << why << "\n";
        if (dnnl != nullptr) dnnlOuts = dnnl->forward(input);
        else std::cout << "     " << model << " does not run in oneDNN: " << dnnlWhy << "\n";
        for (size_t i = 0; i < outputs.size(); ++i) {
            std::vector<float> expected = readFloats(ref + "/" + model + "." + outputs[i].first + ".f32");
            const Difference opencv = difference(outs[i], expected.data(), expected.size());
            bool ok = opencv.ok;
            std::cout << (ok ? "ok   " : "FAIL ") << model << "." << outputs[i].first << " (" << expected.size()
                      << " values): max abs diff " << opencv.worst;
            if (!fast.empty()) {
                // XNNPACK sums in another order: beyond 100, 2e-5 of the value (the selfie
                // segmenter's logits far below 0, where its mask is 0, differ by 1.45e-5).
                const Difference xnn = difference(fast[i], expected.data(), expected.size(), 2e-5);
                const Difference apart = difference(fast[i], outs[i].ptr<float>(), outs[i].total(), 2e-5);
                std::cout << "; XNNPACK " << xnn.worst << ", from OpenCV " << apart.worst;
                ok = ok && xnn.ok && apart.ok;
                if (!ok) std::cout << " FAIL";
            }
            if (!dnnlOuts.empty()) {
                const Difference onednn = difference(dnnlOuts[i], expected.data(), expected.size(), 2e-5);
                const Difference apart = difference(dnnlOuts[i], outs[i].ptr<float>(), outs[i].total(), 2e-5);
                std::cout << "; oneDNN " << onednn.worst << ", from OpenCV " << apart.worst;
                ok = ok && onednn.ok && apart.ok;
                if (!ok) std::cout << " FAIL";
            }
            std::cout << "\n";
            failed += ok ? 0 : 1;
            ++checked;
        }
    }
    std::cout << checked << " outputs checked, " << failed << " failed\n";
    return checked > 0 && failed == 0 ? 0 : 1;
}
