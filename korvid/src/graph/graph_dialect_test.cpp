// Graph and configuration text: every built-in template loads, the dialect's liberties
// are accepted, and hostile or inconsistent text fails cleanly with its code.
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <opencv2/core/utility.hpp>

#include "testing/builtin_templates.h"
#include "testing/framework_harness.h"

namespace kv::testing {
namespace {

using namespace Vantor;

TEST(GraphDialect, EveryBuiltinTemplateLoads) {
    SystemHarness h;
    for (const auto& [kind, text] : builtinTemplates()) {
        EXPECT_EQ(h->loadGraph(text), NO_ERROR) << "kind " << kind << ": " << h->getLastErrorMessage();
        EXPECT_TRUE(h->producesType(static_cast<AlgorithmType>(kind == 9 ? 46 : kind))) << kind;
    }
    // The trailing comma of the recognition graph is part of the dialect.
    EXPECT_EQ(h->loadGraph(kRecognitionGraph), NO_ERROR) << h->getLastErrorMessage();
    // The grading graph names a model that the default list does not hold.
    EXPECT_EQ(h->loadGraph(kGradingGraph), INVALID_MODEL);
}

std::string faceGraph(const std::string& intParams) {
    return R"({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"face_0","type":"face","config":{"keymaps":{"intParam":{)" +
           intParams +
           R"(},"stringParam":{"face_base_model_key":"qm_face"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0}]})";
}

TEST(GraphDialect, NumbersHexAndTrailingCommas) {
    SystemHarness h;
    EXPECT_EQ(h->loadGraph(faceGraph(R"("face_max_num":0x5,"face_detect_mode":0X40000,)")), NO_ERROR);
    EXPECT_EQ(h->loadGraph(faceGraph(R"("face_max_num":-0x1)")), NO_ERROR);
    EXPECT_EQ(h->loadGraph(faceGraph(R"("a":9223372036854775807)")), NO_ERROR);
    for (const char* bad : {R"("a":9223372036854775808)", R"("a":0x8000000000000000)", R"("a":0x1ffffffffffffffff)",
                            R"("a":1.5)", R"("a":0x)", R"("a":01)", R"("a":"5")", R"("a":5,,)", R"(,)"}) {
        EXPECT_EQ(h->loadGraph(faceGraph(bad)), INVALID_GRAPH) << bad;
    }
    const std::string hugeFloat =
        R"({"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"s","type":"similarity","config":{"keyMaps":{"floatParam":{"t":1e999},"stringParam":{"model_name":"qm_sim"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"s","toIndex":0}]})";
    EXPECT_EQ(h->loadGraph(hugeFloat), INVALID_GRAPH);
}

TEST(GraphDialect, HostileAndInconsistentGraphsFail) {
    SystemHarness h;
    const std::string in = R"({"name":"input_0","type":"imageProducer"})";
    const std::string sal = R"({"name":"s","type":"saliency_seg"})";
    const std::string link = R"({"fromNode":"input_0","fromIndex":0,"toNode":"s","toIndex":0})";
    auto graph = [](const std::string& nodes, const std::string& links) {
        return R"({"version":"1.0","mode":2,"nodes":[)" + nodes + R"(],"links":[)" + links + "]}";
    };
    ASSERT_EQ(h->loadGraph(graph(in + "," + sal, link)), NO_ERROR);
    const std::string cases[] = {
        "",
        "{",
        "[]",
        "null",
        std::string(100000, '['),
        std::string(70, '[') + std::string(70, ']'),
        R"({"nodes":[)" + in + "]} trailing",
        R"({"nodes":[]})",
        R"({"links":[]})",
        graph(in + R"(,{"name":"s","type":"no_such_node"})", link),
        graph(in + "," + in, ""),
        graph(in + "," + sal, R"({"fromNode":"input_0","fromIndex":0,"toNode":"ghost","toIndex":0})"),
        graph(in + "," + sal, R"({"fromNode":"input_0","fromIndex":0,"toNode":"s","toIndex":3})"),
        graph(in + "," + sal, R"({"fromNode":"input_0","fromIndex":1,"toNode":"s","toIndex":0})"),
        graph(in + "," + sal, link + "," + link),
        graph(in + "," + sal, ""),  // a required slot left unlinked
        graph(in + R"(,{"name":"t","type":"nh_image_transform"},{"name":"c","type":"nh_convert_to_tensor"},{"name":"x","type":"nh_image_transform"})",
              R"({"fromNode":"c","fromIndex":0,"toNode":"t","toIndex":0})"),  // wrong kind of input
        graph(R"({"name":"a","type":"nh_convert_to_tensor"},{"name":"b","type":"nh_image_transform"},{"name":"c","type":"nh_convert_to_tensor"})",
              R"({"fromNode":"a","fromIndex":0,"toNode":"a","toIndex":0})"),  // self loop
        graph(in + R"(,{"name":"s","type":"saliency_seg","config":{"keymaps":{"intParam":{"x":"1"}}}})", link),
        graph(in + R"(,{"name":"s","type":"saliency_seg","config":[]})", link),
        graph(in + R"(,{"name":"","type":"saliency_seg"})", link),
        R"({"nodes":[{"name":"a\ud800","type":"imageProducer"}]})",
        R"({"nodes":[{"name":"a\q","type":"imageProducer"}]})",
        std::string(R"({"nodes":[{"name":")") + '\x01' + R"(","type":"imageProducer"}]})",
    };
    for (const std::string& text : cases) {
        EXPECT_EQ(h->loadGraph(text), INVALID_GRAPH) << text.substr(0, 200);
        EXPECT_FALSE(h->hasGraph());
        EXPECT_FALSE(h->getLastErrorMessage().empty());
    }
    // A cycle between two tensor converters fed by each other.
    const std::string cycle = graph(
        in + R"(,{"name":"t","type":"nh_image_transform"},{"name":"a","type":"nh_convert_to_tensor"},{"name":"b","type":"nh_inference","config":{"keyMaps":{"stringParam":{"model_name":"nodehub_c3_300"}}}},{"name":"r","type":"relation_recog","config":{"keyMaps":{"stringParam":{"model_name":"nodehub_relation"}}}})",
        R"({"fromNode":"input_0","fromIndex":0,"toNode":"t","toIndex":0},{"fromNode":"t","fromIndex":0,"toNode":"a","toIndex":0},{"fromNode":"a","fromIndex":0,"toNode":"b","toIndex":0},{"fromNode":"a","fromIndex":0,"toNode":"r","toIndex":0})");
    EXPECT_EQ(h->loadGraph(cycle), NO_ERROR) << h->getLastErrorMessage();
    const std::string faces = graph(
        in + R"(,{"name":"f","type":"face","config":{"keymaps":{"stringParam":{"face_base_model_key":"qm_face"}}}},{"name":"e","type":"expression_detect"},{"name":"v","type":"face_verify","config":{"keymaps":{"stringParam":{"face_verify_model_key":"qm_faceverify"}}}})",
        R"({"fromNode":"input_0","fromIndex":0,"toNode":"f","toIndex":0},{"fromNode":"e","fromIndex":0,"toNode":"f","toIndex":0},{"fromNode":"f","fromIndex":0,"toNode":"e","toIndex":1},{"fromNode":"input_0","fromIndex":0,"toNode":"e","toIndex":0})");
    EXPECT_EQ(h->loadGraph(faces), INVALID_GRAPH);  // slot kind mismatch is caught before ordering
    const std::string loop = graph(
        R"({"name":"t","type":"nh_image_transform"},{"name":"c","type":"nh_convert_to_tensor"},{"name":"r","type":"relation_recog","config":{"keyMaps":{"stringParam":{"model_name":"nodehub_relation"}}}},{"name":"p","type":"nh_classification"})",
        R"({"fromNode":"t","fromIndex":0,"toNode":"c","toIndex":0},{"fromNode":"c","fromIndex":0,"toNode":"r","toIndex":0},{"fromNode":"r","fromIndex":0,"toNode":"p","toIndex":0})");
    EXPECT_EQ(h->loadGraph(loop), INVALID_GRAPH);  // the transform's image slot is unlinked
}

TEST(FrameworkConfiguration, AcceptsObjectsAndValidFaults) {
    auto init = [](const std::string& text) {
        VantorAlgorithmSystem* s = VantorAlgorithmFactory::CreateAlgorithmSystem();
        char* block = static_cast<char*>(std::malloc(text.size() + 1));
        std::memcpy(block, text.c_str(), text.size() + 1);
        int code = s->initFromMemory(true, block, static_cast<int32_t>(text.size()));
        VantorAlgorithmFactory::DestroyAlgorithmSystem(s);
        return code;
    };
    EXPECT_EQ(init("{}"), NO_ERROR);
    EXPECT_EQ(init(R"({"other":[1,2],"faults":{"25":{"execute":4},"33":{"result":null},"-7":{"throw":"x"}}})"), NO_ERROR);
    for (const char* bad : {"", "[]", "null", "1", "{", "{}x", R"({"faults":[]})", R"({"faults":{"x":{"execute":4}}})",
                            R"({"faults":{"25":{"execute":"4"}}})", R"({"faults":{"25":{"result":0}}})",
                            R"({"faults":{"25":{"throw":1}}})", R"({"faults":{"25":{}}})",
                            R"({"faults":{"25":{"execute":4,"result":null}}})", R"({"faults":{"99999999999":{"execute":4}}})",
                            R"({"threads":0})", R"({"threads":-2})", R"({"threads":1.5})", R"({"threads":"2"})",
                            R"({"threads":1025})"}) {
        EXPECT_EQ(init(bad), INVALID_CONFIG) << bad;
    }
    // What a rejected configuration says, as the system's last error message.
    auto message = [](const std::string& text) {
        VantorAlgorithmSystem* s = VantorAlgorithmFactory::CreateAlgorithmSystem();
        char* block = static_cast<char*>(std::malloc(text.size() + 1));
        std::memcpy(block, text.c_str(), text.size() + 1);
        s->initFromMemory(true, block, static_cast<int32_t>(text.size()));
        std::string said = s->getLastErrorMessage();
        VantorAlgorithmFactory::DestroyAlgorithmSystem(s);
        return said;
    };
    EXPECT_EQ(message("[]"), "configuration is not a JSON object");
    EXPECT_EQ(message(R"({"threads":0})"), "\"threads\" is not an integer from 1 to 1024");
    EXPECT_EQ(message(R"({"faults":[]})"), "\"faults\" is not an object");
    EXPECT_EQ(message(R"({"faults":{"x":{"execute":4}}})"), "fault key \"x\" is not a decimal algorithm type");
    EXPECT_EQ(message(R"({"faults":{"25":{}}})"),
              "fault for type 25 is not {\"execute\": CODE}, {\"result\": null} or {\"throw\": TEXT}");
    EXPECT_EQ(message("{"), "configuration: expected a member name at offset 1");
    // "threads" sets OpenCV's process-wide thread count; without it the setting stays.
    const int threads = cv::getNumThreads();
    EXPECT_EQ(init(R"({"threads":1})"), NO_ERROR);
    EXPECT_EQ(cv::getNumThreads(), 1);
    EXPECT_EQ(init(R"({"threads":3})"), NO_ERROR);
    EXPECT_EQ(cv::getNumThreads(), 3);
    EXPECT_EQ(init("{}"), NO_ERROR);
    EXPECT_EQ(cv::getNumThreads(), 3);
    cv::setNumThreads(threads);
    VantorAlgorithmSystem* s = VantorAlgorithmFactory::CreateAlgorithmSystem();
    EXPECT_EQ(s->initFromMemory(false, nullptr, 3), INVALID_CONFIG);
    EXPECT_EQ(s->initFromMemory(false, static_cast<char*>(std::malloc(4)), -1), INVALID_CONFIG);
    EXPECT_EQ(s->initFromFile(false, "/nonexistent/korvid.json"), INVALID_CONFIG);
    EXPECT_EQ(s->initFromFile(false, "/"), INVALID_CONFIG);
    const std::string path = ::testing::TempDir() + "korvid_config.json";
    std::ofstream(path) << R"({"faults":{}})";
    EXPECT_EQ(s->initFromFile(false, path), NO_ERROR);
    EXPECT_TRUE(s->isInitialized());
    VantorAlgorithmFactory::DestroyAlgorithmSystem(s);
}

}  // namespace
}  // namespace kv::testing
