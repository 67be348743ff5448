// Time per algorithm key of a classification request: the kind-121 graph and ten
// parameters. Baseline: OpenSSL's MD5() of the finished key text alone, the part of the
// work that no implementation can skip.
#define OPENSSL_SUPPRESS_DEPRECATED  // MD5() is deprecated in OpenSSL 3, still the reference here
#include <openssl/md5.h>

#include <benchmark/benchmark.h>

#include "bench/bench_texts.h"
#include "extractor/input.h"

namespace VQFeature {
namespace {

Input classificationRequest() {
    const IntParams ints = {{"num_classes", 208}, {"feature_dim", 1280}, {"resize_width", 224},
                            {"resize_height", 224}};
    const FloatParams floats = {{"data_convert_beta", -128.f}, {"data_convert_alpha", 1.f}, {"threshold", 0.5f}};
    const StringParams strings = {{"model_name", "nodehub_c3_300"}, {"output_names", "output.0"},
                                  {"feature_name", "feature_mix_layer.0"}};
    return Input({}, bench::classificationGraph(), ints, floats, strings, Vantor::AlgorithmType::NHClassification);
}

// The text that the key digests, built the plain way (see Input::algorithmKey).
std::string keyText(const Input& input) {
    std::string text = input.algorithmConf + "|" + std::to_string(static_cast<int>(input.type)) + "|";
    for (const auto& [name, value] : input.intParams) text += name + ":" + std::to_string(value);
    for (const auto& [name, value] : input.floatParams) text += name + ":" + std::to_string(value);
    for (const auto& [name, value] : input.stringParams) text += name + ":" + value;
    return text;
}

void algorithmKey(benchmark::State& state) {
    const Input input = classificationRequest();
    for (auto _ : state) benchmark::DoNotOptimize(input.algorithmKey(Vantor::AlgorithmType::AllNodes));
}
BENCHMARK(algorithmKey)->Name("key/graph121/vqfe");

void opensslDigestOfKeyText(benchmark::State& state) {
    const std::string text = keyText(classificationRequest());
    unsigned char out[MD5_DIGEST_LENGTH];
    for (auto _ : state) {
        ::MD5(reinterpret_cast<const unsigned char*>(text.data()), text.size(), out);
        benchmark::DoNotOptimize(out);
    }
}
BENCHMARK(opensslDigestOfKeyText)->Name("key/graph121/openssl_md5");

}  // namespace
}  // namespace VQFeature

BENCHMARK_MAIN();
