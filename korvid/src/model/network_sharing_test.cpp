// Networks and cascades shared by the systems of one process: a network is read once however
// many systems load it, also when they load at the same moment, freed with the last system
// that holds it, and systems running on several threads at once (each its own system, as
// `vqfe extract --jobs N` runs them) get the results one system gets alone. Run under
// ThreadSanitizer by scripts/test.
#include <atomic>
#include <functional>
#include <numeric>
#include <sstream>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Korvid/Diagnostics.h"
#include "Vantor/SegmentationBuffers.h"
#include "testing/builtin_templates.h"
#include "testing/file_bytes.h"
#include "testing/framework_harness.h"

namespace kv::testing {
namespace {

using namespace Vantor;

TEST(NetworkSharing, SystemsOfAProcessReadEachNetworkOnce) {
    const long before = Korvid::networksRead();
    {
        SystemHarness a, b;
        ASSERT_EQ(a->loadGraph(builtinTemplate(4)), NO_ERROR);  // detector, mesh and iris
        EXPECT_EQ(Korvid::networksRead(), before + 3);
        ASSERT_EQ(b->loadGraph(builtinTemplate(4)), NO_ERROR);
        EXPECT_EQ(Korvid::networksRead(), before + 3) << "the second system reads none";
        ASSERT_EQ(b->loadGraph(builtinTemplate(8)), NO_ERROR);  // the same three and the descriptor
        ASSERT_EQ(a->loadGraph(builtinTemplate(8)), NO_ERROR);
        EXPECT_EQ(Korvid::networksRead(), before + 4);
        // Other bytes under the same name are another network, for that system only: one bit
        // in the middle of the weights, the size and both ends unchanged; then one bit
        // elsewhere, which must not pass for the first change either.
        const std::string original = vqfe_testing::fileBytes(std::string(KORVID_TEST_MODEL_DIR) + "/qm_face.model");
        std::string changed = original;
        changed[changed.size() / 2] = static_cast<char>(changed[changed.size() / 2] ^ 1);
        a.finder.overrides = {{"qm_face", changed}};
        ASSERT_EQ(a->loadGraph(builtinTemplate(4)), NO_ERROR);
        EXPECT_EQ(Korvid::networksRead(), before + 5);
        ASSERT_EQ(b->loadGraph(builtinTemplate(4)), NO_ERROR);
        EXPECT_EQ(Korvid::networksRead(), before + 5);
        changed = original;
        changed[changed.size() * 3 / 4] = static_cast<char>(changed[changed.size() * 3 / 4] ^ 1);
        b.finder.overrides = {{"qm_face", changed}};
        ASSERT_EQ(b->loadGraph(builtinTemplate(4)), NO_ERROR);
        EXPECT_EQ(Korvid::networksRead(), before + 6);
        a.finder.overrides = {{"qm_face", original}};
        ASSERT_EQ(a->loadGraph(builtinTemplate(4)), NO_ERROR);
        EXPECT_EQ(Korvid::networksRead(), before + 6) << "the original bytes find the network read first";
    }
    // The process keeps no network that no system holds.
    SystemHarness c;
    ASSERT_EQ(c->loadGraph(builtinTemplate(4)), NO_ERROR);
    EXPECT_EQ(Korvid::networksRead(), before + 9);
}

// Runs each of the calls on a thread of its own, all released at the same moment.
void atOnce(const std::vector<std::function<void()>>& calls) {
    std::atomic<size_t> ready{0};
    std::vector<std::thread> threads;
    for (const auto& call : calls) {
        threads.emplace_back([&] {
            ++ready;
            while (ready.load() < calls.size()) std::this_thread::yield();
            call();
        });
    }
    for (auto& thread : threads) thread.join();
}

TEST(NetworkConcurrency, SystemsLoadingAtOnceReadEachNetworkOnce) {
    const long before = Korvid::networksRead();
    // Damaged bytes: every system fails, none waits for ever on another's failed read, and
    // the failure leaves nothing behind that a later load would find.
    std::string damaged = vqfe_testing::fileBytes(std::string(KORVID_TEST_MODEL_DIR) + "/qm_face.model");
    damaged.resize(damaged.size() / 2);
    constexpr size_t kSystems = 3;
    // One OpenCV thread, as the tool sets it for several jobs (OpenCV's pool threads
    // synchronise in TBB, which ThreadSanitizer cannot see).
    std::vector<std::unique_ptr<SystemHarness>> systems;
    for (size_t s = 0; s < kSystems; ++s) systems.push_back(std::make_unique<SystemHarness>(R"({"threads":1})"));
    std::vector<int> codes(kSystems, -1);
    std::vector<std::function<void()>> loads;
    for (size_t s = 0; s < kSystems; ++s) {
        systems[s]->finder.overrides = {{"qm_face", damaged}};
        loads.push_back([&h = *systems[s], &code = codes[s]] { code = h->loadGraph(builtinTemplate(8)); });
    }
    atOnce(loads);
    for (size_t s = 0; s < kSystems; ++s) EXPECT_EQ(codes[s], INVALID_MODEL) << "system " << s;

    // The whole bytes: the four networks of the verification graph (detector, mesh, iris,
    // descriptor) are read once between them, whichever order each system loads its nodes in
    // (also those a system read before its load failed: its cache keeps them).
    for (size_t s = 0; s < kSystems; ++s) systems[s]->finder.overrides.clear();
    atOnce(loads);
    for (size_t s = 0; s < kSystems; ++s) EXPECT_EQ(codes[s], NO_ERROR) << "system " << s;
    EXPECT_EQ(Korvid::networksRead(), before + 4);
}

// Faces of the face graph with their landmarks, to the last bit.
std::string faces(SystemHarness& h) {
    std::ostringstream out;
    out.precision(9);
    if (auto* f = static_cast<FaceBuffer*>(h->getResult(AlgorithmType::Face))) {
        for (const auto& face : f->faces) {
            double sum = 0;
            for (const auto& point : face->points) sum += point.x + 2 * point.y;
            out << face->rect.x << ',' << face->rect.y << ',' << face->score << ',' << sum << ';';
        }
    }
    return out.str();
}

// Graph kind on photo in one system alone, then in two systems on two threads at once, twice
// each: every run gives the result of the one alone (summary describes it to the last bit).
void expectRunsAtOnceAsAlone(int kind, const char* photo, std::string (*summary)(SystemHarness&), const char* what) {
    // One OpenCV thread, as the tool sets it for several jobs: results are then the same bits.
    const std::string config = R"({"threads":1})";
    std::string alone;
    {
        SystemHarness h(config);
        ASSERT_EQ(h.run(builtinTemplate(kind), photo, -1), NO_ERROR);
        alone = summary(h);
    }
    ASSERT_NE(alone.find(';'), std::string::npos) << what;

    constexpr int kThreads = 2, kRuns = 2;
    std::vector<std::unique_ptr<SystemHarness>> systems;
    for (int t = 0; t < kThreads; ++t) systems.push_back(std::make_unique<SystemHarness>(config));
    std::vector<std::vector<std::string>> seen(kThreads);
    std::vector<std::function<void()>> calls;
    for (int t = 0; t < kThreads; ++t) {
        calls.push_back([&h = *systems[t], &mine = seen[t], kind, photo, summary] {
            for (int run = 0; run < kRuns; ++run) {
                const int code = h.run(builtinTemplate(kind), photo, -1);
                mine.push_back(code == NO_ERROR ? summary(h) : "code " + std::to_string(code));
            }
        });
    }
    atOnce(calls);
    for (int t = 0; t < kThreads; ++t) {
        for (const std::string& result : seen[t]) EXPECT_EQ(result, alone) << "thread " << t;
    }
}

TEST(NetworkConcurrency, SystemsOnSeveralThreadsGetTheResultsOfOneAlone) {
    expectRunsAtOnceAsAlone(4, "grace_hopper.jpg", faces, "a face");
}

// The cat-face cascade alone as the pet model (no network in it): the pet-face graph runs the
// cascade over the whole image.
std::string bareCatCascade() {
    const std::string bundle = vqfe_testing::fileBytes(std::string(KORVID_TEST_MODEL_DIR) + "/qm_petface.model");
    const std::string header = "korvid-bundle\ncascade ";
    if (bundle.compare(0, header.size(), header) != 0) return {};
    const size_t eol = bundle.find('\n', header.size());
    if (eol == std::string::npos) return {};
    return bundle.substr(eol + 1, std::stoul(bundle.substr(header.size(), eol - header.size())));
}

// Pet faces of the pet-face graph, to the last bit.
std::string petFaces(SystemHarness& h) {
    std::ostringstream out;
    out.precision(9);
    if (auto* f = static_cast<FacePetDetectBuffer*>(h->getResult(AlgorithmType::FacePetDetect))) {
        for (const auto& pet : f->infos) out << pet->rect.x << ',' << pet->rect.y << ',' << pet->rect.width << ',' << pet->score << ';';
    }
    return out.str();
}

TEST(CascadeSharing, SystemsAndReloadsOfAProcessReadEachCascadeOnce) {
    const std::string cascade = bareCatCascade();
    ASSERT_EQ(cascade.compare(0, 5, "<?xml"), 0);
    std::string changed = cascade;  // a digit of a threshold: another cascade
    const size_t digit = changed.find_first_of("123456789", changed.find("<stageThreshold>"));
    ASSERT_NE(digit, std::string::npos);
    changed[digit] = changed[digit] == '9' ? '8' : static_cast<char>(changed[digit] + 1);

    const long before = Korvid::cascadesRead();
    SystemHarness a, b;
    a.finder.overrides = b.finder.overrides = {{"qm_petface", cascade}};
    ASSERT_EQ(a->loadGraph(builtinTemplate(95)), NO_ERROR);
    EXPECT_EQ(Korvid::cascadesRead(), before + 1);
    ASSERT_EQ(b->loadGraph(builtinTemplate(95)), NO_ERROR);
    ASSERT_EQ(a->loadGraph(builtinTemplate(95)), NO_ERROR);
    EXPECT_EQ(Korvid::cascadesRead(), before + 1) << "another system and a reload read none";
    a.finder.overrides = {{"qm_petface", changed}};
    ASSERT_EQ(a->loadGraph(builtinTemplate(95)), NO_ERROR);
    EXPECT_EQ(Korvid::cascadesRead(), before + 2);
    a.finder.overrides = {{"qm_petface", cascade}};
    ASSERT_EQ(a->loadGraph(builtinTemplate(95)), NO_ERROR);
    EXPECT_EQ(Korvid::cascadesRead(), before + 2) << "the original bytes find the cascade read first";
}

// The cat's face is the cascade's, run inside the box the detector finds.
TEST(CascadeConcurrency, SystemsDetectingAtOnceGetTheResultsOfOneAlone) {
    expectRunsAtOnceAsAlone(95, "chelsea.jpg", petFaces, "the cat");
}

}  // namespace
}  // namespace kv::testing
