// Each converted network, run by OpenCV DNN, against the reference runtime's outputs on
// the same input (written by korvid/networks/reference.js): max absolute difference 1e-3
// (1e-5 relative for values beyond 100).
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

namespace {

std::vector<char> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), {});
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
        std::vector<float> input = readFloats(ref + "/" + model + ".input.f32");
        if (bytes.empty() || input.size() != size_t(c) * h * w) {
            std::cerr << model << ": converted network or reference input missing\n";
            ++failed;
            continue;
        }
        std::vector<std::string> names;
        for (const auto& o : outputs) names.push_back(o.first);
        std::vector<cv::Mat> outs;
        try {
            cv::dnn::Net net = cv::dnn::readNetFromONNX(bytes.data(), bytes.size());
            const int shape[] = {1, c, h, w};
            net.setInput(cv::Mat(4, shape, CV_32F, input.data()));
            net.forward(outs, names);
        } catch (const cv::Exception& e) {
            std::cerr << model << ": " << e.what() << "\n";
            ++failed;
            continue;
        }
        for (size_t i = 0; i < outputs.size(); ++i) {
            std::vector<float> expected = readFloats(ref + "/" + model + "." + outputs[i].first + ".f32");
            // 1e-3 absolute; values beyond 100 (logits far from 0) to 1e-5 of their size,
            // about a hundred float32 roundings.
            double worst = outs[i].total() == expected.size() ? 0 : INFINITY;
            bool ok = std::isfinite(worst);
            const float* got = outs[i].ptr<float>();
            for (size_t k = 0; k < expected.size() && ok; ++k) {
                const double diff = std::fabs(double(got[k]) - double(expected[k]));
                worst = std::max(worst, diff);
                ok = diff <= std::max(1e-3, 1e-5 * std::fabs(double(expected[k])));
            }
            std::cout << (ok ? "ok   " : "FAIL ") << model << "." << outputs[i].first << " (" << expected.size()
                      << " values): max abs diff " << worst << "\n";
            failed += ok ? 0 : 1;
            ++checked;
        }
    }
    std::cout << checked << " outputs checked, " << failed << " failed\n";
    return checked > 0 && failed == 0 ? 0 : 1;
}
