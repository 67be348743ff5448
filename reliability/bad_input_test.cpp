// The bad-input table, docs/bad-input.md: every kind of bad input an app can hand the
// library, tried through the path the app uses (the JNI natives for handles, indices and
// counts; the engine for blobs, graphs, configurations, models and images). Each row
// records what the caller gets and checks that nothing crashed (the test went on) and
// nothing leaked (LeakSanitizer, row by row). The table is made under the asan preset:
//   VQFE_WRITE_BAD_INPUT_TABLE=1 build-asan/bin/bad_input_test   (rewrites the file)
// Otherwise the test fails when the committed table differs from what the rows give.
#include <gtest/gtest.h>
#include <jni.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "extractor/extractor.h"
#include "reliability/testing/fake_jni.h"
#include "testing/rgba_image.h"
#include "vantor/cover_util.h"
#include "testing/temp_dir.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#define VQFE_LEAK_CHECKED 1
#else
#define VQFE_LEAK_CHECKED 0
#endif

#define VQFE_NATIVE(name) Java_com_quorvane_zul_mediaprocessors_extractor_1jni_MPFeatureExtractorJNI_##name
extern "C" {
jlong JNICALL VQFE_NATIVE(new_1Resource_1_1SWIG_11)(JNIEnv*, jclass, jstring);
jlong JNICALL VQFE_NATIVE(new_1ImageBuffer_1_1SWIG_10)(JNIEnv*, jclass);
void JNICALL VQFE_NATIVE(delete_1ImageBuffer)(JNIEnv*, jclass, jlong);
void JNICALL VQFE_NATIVE(ImageBuffer_1length_1set)(JNIEnv*, jclass, jlong, jobject, jobject);
jlong JNICALL VQFE_NATIVE(new_1VecString_1_1SWIG_10)(JNIEnv*, jclass);
jlong JNICALL VQFE_NATIVE(new_1VecString_1_1SWIG_11)(JNIEnv*, jclass, jlong, jobject);
jlong JNICALL VQFE_NATIVE(new_1VecString_1_1SWIG_12)(JNIEnv*, jclass, jint, jstring);
void JNICALL VQFE_NATIVE(delete_1VecString)(JNIEnv*, jclass, jlong);
void JNICALL VQFE_NATIVE(VecString_1doAdd_1_1SWIG_10)(JNIEnv*, jclass, jlong, jobject, jstring);
jstring JNICALL VQFE_NATIVE(VecString_1doGet)(JNIEnv*, jclass, jlong, jobject, jint);
void JNICALL VQFE_NATIVE(VecString_1reserve)(JNIEnv*, jclass, jlong, jobject, jlong);
jlong JNICALL VQFE_NATIVE(new_1Result_1_1SWIG_10)(JNIEnv*, jclass);
void JNICALL VQFE_NATIVE(delete_1Result)(JNIEnv*, jclass, jlong);
void JNICALL VQFE_NATIVE(Result_1setResultNative)(JNIEnv*, jclass, jlong, jobject, jbyteArray);
void JNICALL VQFE_NATIVE(Result_1memcpyStructResult)(JNIEnv*, jclass, jlong, jobject, jbyteArray);
jlong JNICALL VQFE_NATIVE(Result_1SWIGSmartPtrUpcast)(JNIEnv*, jclass, jlong);
void JNICALL VQFE_NATIVE(Result_1result_1set)(JNIEnv*, jclass, jlong, jobject, jlong);
jlong JNICALL VQFE_NATIVE(Result_1result_1get)(JNIEnv*, jclass, jlong, jobject);
void JNICALL VQFE_NATIVE(Result_1freeResult)(JNIEnv*, jclass, jlong, jobject);
}

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;
using testing::FakeJni;

struct Row {
    std::string group, input, through, outcome;
    bool leaked;
    bool passed;  // the outcome is the expected kind of answer and nothing leaked
};

std::string quotedText(const std::string& text) {
    std::string out = "\"";
    for (char c : text) out += c == '|' ? std::string("\\|") : std::string(1, c);
    return out + "\"";
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A real blob of the seed corpus (the first byte there is the decoder index).
std::string realBlob(const std::string& seed) {
    return readFile(std::string(VQFE_SOURCE_DIR) + "/fuzz/corpus/decoders/" + seed).substr(1);
}

std::shared_ptr<ImageBuffer> thumbnail(int width = 64) {
    cv::Mat bgr = cv::imread(std::string(VQFE_SOURCE_DIR) + "/testdata/coffee.jpg", cv::IMREAD_COLOR), small;
    cv::resize(bgr, small, cv::Size(width, bgr.rows * width / bgr.cols), 0, 0, cv::INTER_AREA);
    return testing::rgbaImage(small);
}

class BadInputTable : public ::testing::Test {
protected:
    void SetUp() override {
        dir.write("framework.json", "{}");
        dir.write("not-json.json", "framework: yes");
        dir.write("array.json", "[]");
        dir.write("models/empty/qm_porn_classifier.model", "");
        dir.write("models/none/.keep", "");
    }

    // Runs one case; its outcome text and whether that is the expected kind of answer.
    void row(const std::string& input, const std::string& through,
             const std::function<std::pair<std::string, bool>()>& run) {
        auto [outcome, expected] = run();
        bool leaked = false;
#if VQFE_LEAK_CHECKED
        leaked = __lsan_do_recoverable_leak_check() != 0;
#endif
        EXPECT_TRUE(expected) << input << ": " << outcome;
        EXPECT_FALSE(leaked) << input << " leaked";
        rows.push_back({group, input, through, outcome, leaked, expected && !leaked});
    }

    std::unique_ptr<Extractor> extractor(const std::string& configFile = "framework.json",
                                         const std::string& models = VQFE_MODEL_DIR) {
        std::shared_ptr<Config> config = std::make_shared<Config>();
        auto made = std::make_unique<Extractor>(config, nullptr, nullptr, models, dir.path() + "/" + configFile, false);
        lastInit = made->init();
        return made;
    }

    // One extraction of kind over one resource; "error (code, text)" or the blob size.
    static std::pair<std::string, bool> extract(Extractor& e, const std::shared_ptr<ImageBuffer>& image,
                                                AlgorithmType kind, const std::string& graph, bool wantError) {
        auto input = std::make_shared<Input>(ResourceList{std::make_shared<Resource>("a", "", image)}, graph,
                                             IntParams{}, kind);
        ErrorPair error{0, ""};
        auto out = e.extractFeatures(input, false, &error);
        std::string text = out.size() == 1 ? "" : std::to_string(out.size()) + " results; ";
        const bool blob = out.size() == 1 && out[0]->result != nullptr;
        text += error.first != 0 || !error.second.empty()
                    ? "error pair (" + std::to_string(error.first) + ", " + quotedText(error.second) + "), "
                    : "no error, ";
        text += blob ? "a blob of " + std::to_string(out[0]->resultLength) + " bytes" : "a Result without blob";
        return {text, out.size() == 1 && (wantError ? error.first != 0 && !blob : error.first == 0)};
    }

    std::pair<std::string, bool> graphCase(const std::string& graph) {
        auto e = extractor();
        return extract(*e, thumbnail(), static_cast<AlgorithmType>(25), graph, true);
    }

    std::pair<std::string, bool> imageCase(const std::function<void(ImageBuffer&)>& spoil, bool wantError) {
        auto e = extractor();
        auto image = thumbnail();
        spoil(*image);
        const auto kind = static_cast<AlgorithmType>(33);
        return extract(*e, image, kind, CoverUtil::getAlgorithmConf(kind), wantError);
    }

    // A Result of kind holding blob; what its typed accessor gives.
    template <typename Accessor>
    static std::pair<std::string, bool> decode(int kind, const std::string& blob, Accessor accessor) {
        void* block = std::malloc(blob.size() + 1);
        std::memcpy(block, blob.data(), blob.size());
        Result r("a", "k", static_cast<AlgorithmType>(kind), block, static_cast<int>(blob.size()));
        const bool decoded = accessor(r) != nullptr;
        return {decoded ? "a decoded record" : "null", !decoded};
    }

    // A native's outcome: the exception raised, or what the caller gets.
    std::pair<std::string, bool> thrown(const std::string& wanted, const std::string& otherwise = "returns normally") {
        std::string exception = jni.takeException();
        if (exception.empty()) return {otherwise, wanted.empty()};
        return {"throws " + exception, !wanted.empty() && exception.rfind(wanted, 0) == 0};
    }

    std::string table() const {
        std::ostringstream out;
        out << "# Bad input\n\n"
               "What the library does with each kind of bad input an app can hand it. Generated by\n"
               "`reliability/bad_input_test.cpp` under the `asan` preset, which tries every row and\n"
               "checks that nothing crashed and, with LeakSanitizer after each row, that nothing\n"
               "leaked; the test fails when this file differs from what the rows give. Regenerate:\n"
               "`VQFE_WRITE_BAD_INPUT_TABLE=1 build-asan/bin/bad_input_test`.\n\n"
               "Handles are 64-bit values of the JNI natives (`MPFeatureExtractorJNI`); the binding\n"
               "checks null strings, null references, null `BigInteger`s and null arrays, and ignores\n"
               "0 in `delete_*` and upcasts. It does not check the object handle of a method call: a\n"
               "proxy used after `delete()` passes 0 there, as with any SWIG binding.\n";
        std::string group;
        for (const Row& r : rows) {
            if (r.group != group) {
                group = r.group;
                out << "\n## " << group << "\n\n| Input | Through | What the caller gets | Crashed | Leaked | Row |\n"
                    << "|---|---|---|---|---|---|\n";
            }
            out << "| " << r.input << " | " << r.through << " | " << r.outcome << " | no | "
                << (r.leaked ? "yes" : "no") << " | " << (r.passed ? "passes" : "FAILS") << " |\n";
        }
        return out.str();
    }

    TempDir dir;
    FakeJni jni;
    std::vector<Row> rows;
    std::string group;
    int lastInit = 0;
};

TEST_F(BadInputTable, EveryRowIsAnsweredCleanly) {
#if !VQFE_LEAK_CHECKED
    GTEST_SKIP() << "the table is made under the asan preset, where every row is leak-checked";
#endif
    JNIEnv* env = jni.env();
#define N(name) VQFE_NATIVE(name)

    group = "Null and 0 handles";
    row("null asset id for `new Resource(String)`", "`new_Resource__SWIG_1`", [&] {
        jlong h = N(new_1Resource_1_1SWIG_11)(env, nullptr, nullptr);
        auto r = thrown("java.lang.NullPointerException");
        return std::make_pair(r.first + (h == 0 ? ", handle 0" : ", a handle"), r.second && h == 0);
    });
    row("null `BigInteger` for `ImageBuffer.setLength`", "`ImageBuffer_length_set`", [&] {
        jlong h = N(new_1ImageBuffer_1_1SWIG_10)(env, nullptr);
        N(ImageBuffer_1length_1set)(env, nullptr, h, nullptr, nullptr);
        auto r = thrown("java.lang.NullPointerException");
        N(delete_1ImageBuffer)(env, nullptr, h);
        return r;
    });
    row("0 handle as the list to copy in `new VecString(VecString)`", "`new_VecString__SWIG_1`", [&] {
        jlong h = N(new_1VecString_1_1SWIG_11)(env, nullptr, 0, nullptr);
        auto r = thrown("java.lang.NullPointerException");
        return std::make_pair(r.first + (h == 0 ? ", handle 0" : ", a handle"), r.second && h == 0);
    });
    auto withResult = [&](const std::function<void(jlong)>& use) {
        jlong h = N(new_1Result_1_1SWIG_10)(env, nullptr);
        use(h);
        N(delete_1Result)(env, nullptr, h);
    };
    row("null array for `Result.memcpyStructResult`", "`Result_memcpyStructResult`", [&] {
        withResult([&](jlong h) { N(Result_1memcpyStructResult)(env, nullptr, h, nullptr, nullptr); });
        return thrown("", "nothing copied, no exception");
    });
    row("null array for `Result.setResultNative`", "`Result_setResultNative`", [&] {
        withResult([&](jlong h) { N(Result_1setResultNative)(env, nullptr, h, nullptr, nullptr); });
        return thrown("", "a zero-length block is stored, no exception");
    });
    row("0 handle to `delete_Result`", "`delete_Result`", [&] {
        N(delete_1Result)(env, nullptr, 0);
        return thrown("", "ignored");
    });
    row("0 handle to `Result_SWIGSmartPtrUpcast`", "`Result_SWIGSmartPtrUpcast`", [&] {
        jlong h = N(Result_1SWIGSmartPtrUpcast)(env, nullptr, 0);
        auto r = thrown("", "handle 0");
        return std::make_pair(r.first, r.second && h == 0);
    });

    group = "Indices and counts";
    auto withList = [&](const std::function<void(jlong)>& use) {
        jlong list = N(new_1VecString_1_1SWIG_10)(env, nullptr);
        N(VecString_1doAdd_1_1SWIG_10)(env, nullptr, list, nullptr, jni.string("only"));
        use(list);
        N(delete_1VecString)(env, nullptr, list);
    };
    row("index 5 of a one-element `VecString`", "`VecString_doGet`", [&] {
        withList([&](jlong list) { N(VecString_1doGet)(env, nullptr, list, nullptr, 5); });
        return thrown("java.lang.IndexOutOfBoundsException");
    });
    row("index -1 of a one-element `VecString`", "`VecString_doGet`", [&] {
        withList([&](jlong list) { N(VecString_1doGet)(env, nullptr, list, nullptr, -1); });
        return thrown("java.lang.IndexOutOfBoundsException");
    });
    row("count -1 for `new VecString(int, String)`", "`new_VecString__SWIG_2`", [&] {
        jlong h = N(new_1VecString_1_1SWIG_12)(env, nullptr, -1, jni.string("x"));
        auto r = thrown("java.lang.IndexOutOfBoundsException");
        if (h != 0) N(delete_1VecString)(env, nullptr, h);
        return std::make_pair(r.first + (h == 0 ? ", handle 0" : ", a handle"), r.second && h == 0);
    });
    row("capacity -1 for `VecString.reserve`", "`VecString_reserve`", [&] {
        withList([&](jlong list) { N(VecString_1reserve)(env, nullptr, list, nullptr, -1); });
        return thrown("java.lang.IndexOutOfBoundsException");
    });
    // A shared handle as the binding makes it: a heap shared_ptr's address.
    auto resultHandle = [](std::shared_ptr<Result> result) {
        auto* holder = new std::shared_ptr<Result>(std::move(result));
        jlong h = 0;
        std::memcpy(&h, &holder, sizeof holder);
        return h;
    };
    auto fourByteResult = [&] {
        void* blob = std::malloc(4);
        std::memcpy(blob, "\x01\x02\x03\x04", 4);
        return std::make_shared<Result>("a", "k", static_cast<AlgorithmType>(33), blob, 4);
    };
    // Copies a 4-byte blob whose Result claims length bytes into a 64-byte array.
    auto copyFourBytes = [&](unsigned long length) {
        auto result = fourByteResult();
        result->resultLength = length;
        jlong h = resultHandle(result);
        jbyteArray out = jni.bytes(std::vector<jbyte>(64, 0));
        N(Result_1memcpyStructResult)(env, nullptr, h, nullptr, out);
        auto r = thrown("");
        N(delete_1Result)(env, nullptr, h);
        const auto& got = jni.content(out);
        return std::make_pair(std::string("the 4 blob bytes, the rest of the array untouched"),
                              r.second && got[3] == 4 && got[4] == 0 && got[63] == 0);
    };
    row("array longer than the blob for `Result.memcpyStructResult` (4-byte blob, 64-byte array)",
        "`Result_memcpyStructResult`", [&] { return copyFourBytes(4); });

    group = "Blob pointers";
    row("a `resultLength` set past the blob (4-byte blob, length 2^40, 64-byte array) for `Result.memcpyStructResult`",
        "`Result_memcpyStructResult`", [&] { return copyFourBytes(1UL << 40); });
    row("one Result's blob pointer set into a second Result (`setResult(getResult())`), then both released",
        "`Result_result_set`", [&] {
            jlong first = resultHandle(fourByteResult());
            jlong second = N(new_1Result_1_1SWIG_10)(env, nullptr);
            N(Result_1result_1set)(env, nullptr, second, nullptr, N(Result_1result_1get)(env, nullptr, first, nullptr));
            auto r = thrown("");
            N(Result_1freeResult)(env, nullptr, first, nullptr);
            jbyteArray out = jni.bytes(std::vector<jbyte>(4, 0));
            N(Result_1memcpyStructResult)(env, nullptr, second, nullptr, out);
            const bool kept = jni.content(out)[3] == 4;
            N(delete_1Result)(env, nullptr, first);
            N(delete_1Result)(env, nullptr, second);
            return std::make_pair(std::string("both hold the block; the first release leaves it to the second, the last frees it"),
                                  r.second && kept);
        });
    row("the pointer of a freed blob for `Result.setResult`", "`Result_result_set`", [&] {
        jlong first = resultHandle(fourByteResult());
        jlong stale = N(Result_1result_1get)(env, nullptr, first, nullptr);
        N(Result_1freeResult)(env, nullptr, first, nullptr);
        jlong second = N(new_1Result_1_1SWIG_10)(env, nullptr);
        N(Result_1result_1set)(env, nullptr, second, nullptr, stale);
        auto r = thrown("java.lang.IllegalArgumentException");
        const bool unset = N(Result_1result_1get)(env, nullptr, second, nullptr) == 0;
        N(delete_1Result)(env, nullptr, first);
        N(delete_1Result)(env, nullptr, second);
        return std::make_pair(r.first, r.second && unset);
    });
#undef N

    group = "Blobs";
    const std::string face = realBlob("face_buffer-4-astronaut.bin");
    const std::string porn = realBlob("porn_cls_buffer-33-coffee.bin");
    auto faceOf = [](Result& r) { return r.faceBuffer(); };
    row("random bytes `ff ff ff ff ff` as a face blob", "`Result::faceBuffer`", [&] { return decode(4, "\xff\xff\xff\xff\xff", faceOf); });
    row("a real face blob less its last byte", "`Result::faceBuffer`", [&] { return decode(4, face.substr(0, face.size() - 1), faceOf); });
    row("a real face blob cut in half", "`Result::faceBuffer`", [&] { return decode(4, face.substr(0, face.size() / 2), faceOf); });
    row("a sensitive-content blob (kind 33) in a face Result", "`Result::faceBuffer`", [&] { return decode(4, porn, faceOf); });
    row("an empty sensitive-content blob", "`Result::pornClsBuffer`", [&] {
        return decode(33, "", [](Result& r) { return r.pornClsBuffer(); });
    });
    row("a length prefix of 2 GiB inside a face blob", "`Result::faceBuffer`", [&] {
        return decode(4, std::string("\x08\x01\x10\x01\x1a\xff\xff\xff\xff\x07", 10), faceOf);
    });
    row("field number 0 (tag `85 00`) after a valid sensitive-content blob", "`Result::pornClsBuffer`", [&] {
        return decode(33, porn + std::string("\x85\x00\x01\x02\x03\x04", 6), [](Result& r) { return r.pornClsBuffer(); });
    });

    group = "Graphs";
    const std::string in = R"({"name":"input_0","type":"imageProducer"})";
    const std::string scene = R"({"name":"s","type":"scene_recognition"})";
    auto graph = [](const std::string& nodes, const std::string& links) {
        return R"({"version":"1.0","mode":2,"nodes":[)" + nodes + R"(],"links":[)" + links + "]}";
    };
    const std::string link = R"({"fromNode":"input_0","fromIndex":0,"toNode":"s","toIndex":0})";
    row("text that is not JSON (`hello`)", "`Extractor::extractFeatures` (kind 25)", [&] { return graphCase("hello"); });
    row("nesting 100,000 arrays deep", "`Extractor::extractFeatures` (kind 25)", [&] {
        return graphCase(std::string(100000, '[') + std::string(100000, ']'));
    });
    row("an integer of 20 digits and a float of `1e999`", "`Extractor::extractFeatures` (kind 25)", [&] {
        return graphCase(graph(in + R"(,{"name":"s","type":"scene_recognition","config":{"keymaps":{"intParam":{"a":99999999999999999999},"floatParam":{"b":1e999}}}})", link));
    });
    row("a cycle (a node feeding itself)", "`Extractor::extractFeatures` (kind 25)", [&] {
        return graphCase(graph(in + "," + R"({"name":"f","type":"face"},{"name":"v","type":"face_verify"})",
                               R"({"fromNode":"v","fromIndex":0,"toNode":"v","toIndex":0},{"fromNode":"f","fromIndex":0,"toNode":"v","toIndex":1})"));
    });
    row("an unknown node type", "`Extractor::extractFeatures` (kind 25)", [&] {
        return graphCase(graph(in + R"(,{"name":"s","type":"mind_reader"})", link));
    });
    row("a link naming a missing node", "`Extractor::extractFeatures` (kind 25)", [&] {
        return graphCase(graph(in + "," + scene, R"({"fromNode":"ghost","fromIndex":0,"toNode":"s","toIndex":0})"));
    });
    row("a graph of 9 MiB", "`Extractor::extractFeatures` (kind 25)", [&] {
        return graphCase(graph(in + "," + scene, link) + std::string(9u << 20, ' '));
    });

    group = "Configuration and models";
    row("a framework configuration file that is not JSON", "`Extractor::init`", [&] {
        extractor("not-json.json");
        return std::make_pair("code " + std::to_string(lastInit), lastInit == 3);
    });
    row("a framework configuration that is a JSON array", "`Extractor::init`", [&] {
        extractor("array.json");
        return std::make_pair("code " + std::to_string(lastInit), lastInit == 3);
    });
    row("a missing framework configuration file", "`Extractor::init`", [&] {
        extractor("missing.json");
        return std::make_pair("code " + std::to_string(lastInit), lastInit != 0);
    });
    row("a model directory without the graph's model", "`Extractor::extractFeatures` (kind 33)", [&] {
        auto e = extractor("framework.json", dir.path() + "/models/none");
        const auto kind = static_cast<AlgorithmType>(33);
        return extract(*e, thumbnail(), kind, CoverUtil::getAlgorithmConf(kind), true);
    });
    row("an empty model file", "`Extractor::extractFeatures` (kind 33)", [&] {
        auto e = extractor("framework.json", dir.path() + "/models/empty");
        const auto kind = static_cast<AlgorithmType>(33);
        return extract(*e, thumbnail(), kind, CoverUtil::getAlgorithmConf(kind), true);
    });
    row("a model directory that does not exist", "`Extractor::extractFeatures` (kind 33)", [&] {
        auto e = extractor("framework.json", dir.path() + "/nowhere");
        const auto kind = static_cast<AlgorithmType>(33);
        return extract(*e, thumbnail(), kind, CoverUtil::getAlgorithmConf(kind), true);
    });

    group = "Images";
    const char* through = "`Extractor::extractFeatures` (kind 33)";
    row("pixel data one byte short of width x height x 4", through,
        [&] { return imageCase([](ImageBuffer& b) { b.length -= 1; }, true); });
    row("no pixel data (null) with a length", through, [&] {
        return imageCase([](ImageBuffer& b) { b.setData(nullptr, 0); b.data = nullptr; }, true);
    });
    row("pixel format 42 (unknown)", through, [&] { return imageCase([](ImageBuffer& b) { b.format = 42; }, false); });
    row("NV21 with an odd width", through, [&] {
        return imageCase([](ImageBuffer& b) { b.format = 5; b.width -= 1; }, true);
    });
    row("width 0", through, [&] { return imageCase([](ImageBuffer& b) { b.width = 0; }, false); });
    row("height 0", through, [&] { return imageCase([](ImageBuffer& b) { b.height = 0; }, false); });
    row("length 0", through, [&] { return imageCase([](ImageBuffer& b) { b.length = 0; }, false); });
    row("width -64", through, [&] { return imageCase([](ImageBuffer& b) { b.width = -64; }, true); });
    row("height -48", through, [&] { return imageCase([](ImageBuffer& b) { b.height = -48; }, true); });
    row("100,000 x 100,000 pixels claimed over a 64-pixel-wide image", through, [&] {
        return imageCase([](ImageBuffer& b) { b.width = 100000; b.height = 100000; }, true);
    });
    row("rotation 7 (unknown)", through, [&] { return imageCase([](ImageBuffer& b) { b.rotateMode = 7; }, false); });
    row("a length claiming more than the block setData allocated (100 bytes)", through, [&] {
        return imageCase([](ImageBuffer& b) { b.setData(std::string(100, 'x').data(), 100); }, true);
    });
    row("a length claiming more than the block, after recycle", through,
        [&] { return imageCase([](ImageBuffer& b) { b.recycle(); }, true); });

    group = "Requests";
    row("a null Input", "`Extractor::extractFeatures`", [&] {
        auto e = extractor();
        ErrorPair error{0, ""};
        auto out = e->extractFeatures(std::shared_ptr<Input>(), true, &error);
        return std::make_pair(std::to_string(out.size()) + " results, error pair (" + std::to_string(error.first) +
                                  ", \"" + error.second + "\")",
                              out.empty() && error.first == 3);
    });
    // One request over one resource; its Result must come back without blob and error.
    auto lone = [&](const std::shared_ptr<Resource>& resource) {
        auto e = extractor();
        const auto kind = static_cast<AlgorithmType>(33);
        auto input = std::make_shared<Input>(ResourceList{resource}, CoverUtil::getAlgorithmConf(kind), IntParams{}, kind);
        ErrorPair error{0, ""};
        auto out = e->extractFeatures(input, true, &error);
        const bool ok = out.size() == 1 && out[0]->result == nullptr && error.first == 0;
        return std::make_pair(std::string("one Result without blob, no error"), ok);
    };
    row("a null Resource in the list", "`Extractor::extractFeatures` (kind 33)", [&] { return lone(nullptr); });
    row("a Resource without ImageBuffer", "`Extractor::extractFeatures` (kind 33)",
        [&] { return lone(std::make_shared<Resource>("a")); });

    const std::string generated = table();
    const std::string path = std::string(VQFE_SOURCE_DIR) + "/docs/bad-input.md";
    if (std::getenv("VQFE_WRITE_BAD_INPUT_TABLE") != nullptr) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << generated;
    }
    EXPECT_EQ(readFile(path), generated) << "docs/bad-input.md is out of date: regenerate it (see the file's head)";
}

}  // namespace
}  // namespace VQFeature
