// Encoding (resultConvert) and decoding (<name>_alloc + <name>_free) of three result
// blobs, against Google's C++ protobuf building and serialising / parsing the same
// messages of the same schema. Both sides start from the framework buffer and end with
// a fresh byte string (encode) or a fresh message (decode).
//
// The face encoder writes its diagnostic line to standard output on every call; run
// with standard output redirected to a file, as an app's is (scripts/bench does).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "bench/cpp_messages.h"
#include "bench/framework_buffers.h"
#include "encoding/decode_helpers.h"
#include "extractor/extractor_impl.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

const auto kFace = bench::makeFaceBuffer();
const auto kClassification = bench::makeClassificationBuffer();
const auto kMatting = bench::makeMattingBuffer();

std::string encodeOnce(AlgorithmType kind, void* buffer) {
    unsigned long size = 0;
    void* blob = Extractor::ExtractorImpl::resultConvert(kind, buffer, &size);
    std::string bytes(static_cast<const char*>(blob), size);
    std::free(blob);
    return bytes;
}

void encodeVqfe(benchmark::State& state, AlgorithmType kind, void* buffer) {
    unsigned long size = 0;
    for (auto _ : state) {
        void* blob = Extractor::ExtractorImpl::resultConvert(kind, buffer, &size);
        benchmark::DoNotOptimize(blob);
        std::free(blob);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

template <typename Message, typename Buffer>
void encodeProtobuf(benchmark::State& state, AlgorithmType kind, Buffer* buffer) {
    {
        Message message;
        bench::buildMessage(*buffer, &message);
        if (message.SerializeAsString() != encodeOnce(kind, buffer)) {
            state.SkipWithError("the protobuf baseline does not write the library's bytes");
            return;
        }
    }
    size_t size = 0;
    for (auto _ : state) {
        Message message;
        bench::buildMessage(*buffer, &message);
        std::string bytes;
        message.SerializeToString(&bytes);
        size = bytes.size();
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

template <typename Decoded>
void decodeVqfe(benchmark::State& state, AlgorithmType kind, void* buffer,
                Decoded* (*alloc)(const uint8_t*, size_t), void (*release)(Decoded*)) {
    const std::string blob = encodeOnce(kind, buffer);
    const auto* data = reinterpret_cast<const uint8_t*>(blob.data());
    for (auto _ : state) {
        Decoded* message = alloc(data, blob.size());
        benchmark::DoNotOptimize(message);
        release(message);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * blob.size()));
}

template <typename Message>
void decodeProtobuf(benchmark::State& state, AlgorithmType kind, void* buffer) {
    const std::string blob = encodeOnce(kind, buffer);
    for (auto _ : state) {
        Message message;
        if (!message.ParseFromArray(blob.data(), static_cast<int>(blob.size()))) {
            state.SkipWithError("protobuf cannot parse the library's blob");
            break;
        }
        benchmark::DoNotOptimize(message);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * blob.size()));
}

// One case: encode and decode, each by the library and by the baseline.
template <typename Message, typename Buffer, typename Decoded>
void registerCase(const std::string& name, AlgorithmType kind, Buffer* buffer,
                  Decoded* (*alloc)(const uint8_t*, size_t), void (*release)(Decoded*)) {
    benchmark::RegisterBenchmark(("encode/" + name + "/vqfe").c_str(), encodeVqfe, kind, buffer);
    benchmark::RegisterBenchmark(("encode/" + name + "/protobuf").c_str(), encodeProtobuf<Message, Buffer>, kind,
                                 buffer);
    benchmark::RegisterBenchmark(("decode/" + name + "/vqfe").c_str(), decodeVqfe<Decoded>, kind, buffer, alloc,
                                 release);
    benchmark::RegisterBenchmark(("decode/" + name + "/protobuf").c_str(), decodeProtobuf<Message>, kind, buffer);
}

const bool kRegistered = [] {
    registerCase<C_FaceBuffer>("face", AlgorithmType::Face, kFace.get(), face_buffer_alloc, face_buffer_free);
    registerCase<C_NHClassificationBuffer>("classification", AlgorithmType::NHClassification, kClassification.get(),
                                           nhclassification_buffer_alloc, nhclassification_buffer_free);
    registerCase<C_MattingResult>("matting", AlgorithmType::Matting, kMatting.get(), matting_result_alloc,
                                  matting_result_free);
    return true;
}();

}  // namespace
}  // namespace VQFeature

BENCHMARK_MAIN();
