// MD5 throughput of the library's digest against OpenSSL's MD5() on the same bytes.
// Both sides compute the 16-byte digest from scratch (init, update, finalize).
#define OPENSSL_SUPPRESS_DEPRECATED  // MD5() is deprecated in OpenSSL 3, still the reference here
#include <openssl/md5.h>

#include <benchmark/benchmark.h>

#include <utility>

#include "bench/bench_texts.h"
#include "vantor/md5.h"

namespace VQFeature {
namespace {

void oursMd5(benchmark::State& state, const std::string& text) {
    for (auto _ : state) {
        MD5 digest;
        digest.update(text.data(), static_cast<unsigned int>(text.size()));
        digest.finalize();
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void opensslMd5(benchmark::State& state, const std::string& text) {
    unsigned char out[MD5_DIGEST_LENGTH];
    for (auto _ : state) {
        ::MD5(reinterpret_cast<const unsigned char*>(text.data()), text.size(), out);
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

const std::string k64 = bench::payload(64);
const std::string k1K = bench::payload(1024);
const std::string kGraph = bench::classificationGraph();
const std::string k1M = bench::payload(1 << 20);

const bool kRegistered = [] {
    for (const auto& [name, text] : {std::pair<const char*, const std::string*>{"64B", &k64}, {"1KiB", &k1K},
                                     {"graph121", &kGraph}, {"1MiB", &k1M}}) {
        benchmark::RegisterBenchmark((std::string("md5/") + name + "/vqfe").c_str(), oursMd5, *text);
        benchmark::RegisterBenchmark((std::string("md5/") + name + "/openssl").c_str(), opensslMd5, *text);
    }
    return true;
}();

}  // namespace
}  // namespace VQFeature

BENCHMARK_MAIN();
