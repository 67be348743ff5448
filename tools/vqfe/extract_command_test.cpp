// The extract command end to end over the sample photos with the open framework.
#include "tools/vqfe/extract_command.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <sys/stat.h>

#include <cctype>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "Korvid/Diagnostics.h"
#include "library/image_io.h"
#include "testing/pg_test_database.h"
#include "testing/temp_dir.h"

namespace vqfe {
namespace {

// A strict JSON syntax check (objects, arrays, strings, numbers, literals).
class JsonChecker {
public:
    explicit JsonChecker(const std::string& text) : s_(text) {}
    bool valid() { return value() && (skip(), pos_ == s_.size()); }

private:
    void skip() { while (pos_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[pos_]))) ++pos_; }
    bool eat(char c) { return skip(), pos_ < s_.size() && s_[pos_] == c ? (++pos_, true) : false; }
    bool literal(const char* word) {
        const std::string w(word);
        if (s_.compare(pos_, w.size(), w) != 0) return false;
        pos_ += w.size();
        return true;
    }
    bool string() {
        if (!eat('"')) return false;
        while (pos_ < s_.size() && s_[pos_] != '"') {
            if (static_cast<unsigned char>(s_[pos_]) < 0x20) return false;
            pos_ += s_[pos_] == '\\' ? 2 : 1;
        }
        return pos_++ < s_.size();
    }
    bool number() {
        const size_t start = pos_;
        if (pos_ < s_.size() && s_[pos_] == '-') ++pos_;
        while (pos_ < s_.size() && (std::isdigit(static_cast<unsigned char>(s_[pos_])) || std::strchr(".eE+-", s_[pos_]))) ++pos_;
        return pos_ > start;
    }
    bool value() {
        skip();
        if (pos_ >= s_.size()) return false;
        switch (s_[pos_]) {
            case '{':
                ++pos_;
                if (eat('}')) return true;
                do {
                    if (!string() || !eat(':') || !value()) return false;
                } while (eat(','));
                return eat('}');
            case '[':
                ++pos_;
                if (eat(']')) return true;
                do {
                    if (!value()) return false;
                } while (eat(','));
                return eat(']');
            case '"': return string();
            case 't': return literal("true");
            case 'f': return literal("false");
            case 'n': return literal("null");
            default: return number();
        }
    }
    const std::string& s_;
    size_t pos_ = 0;
};

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// The line of one image and kind, or "".
std::string lineFor(const std::vector<std::string>& lines, const std::string& image, const std::string& kind) {
    for (const auto& line : lines) {
        if (line.find("\"image\":\"samples/" + image + "\"") != std::string::npos &&
            line.find("\"name\":\"" + kind + "\"") != std::string::npos) {
            return line;
        }
    }
    return "";
}

class ExtractCommandTest : public testing::Test {
protected:
    void SetUp() override {
        options_.modelDir = VQFE_BUILD_DIR "/models";
        options_.frameworkConfig = VQFE_BUILD_DIR "/share/vqfe/framework.json";
    }

    int run(std::string* out, std::string* err) {
        std::ostringstream o, e;
        const int code = runExtract(options_, o, e);
        *out = o.str();
        *err = e.str();
        return code;
    }

    VQFeature::TempDir temp_;
    const std::string dir_ = temp_.path();
    ExtractOptions options_;
};

TEST_F(ExtractCommandTest, EveryKindOverTheSamplesThenTheStoreAnswersWithoutTheFramework) {
    for (const Kind& kind : kindsWithBlobs()) options_.kinds.push_back(kind);
    options_.storePath = dir_ + "/results.db";
    options_.drawDir = dir_ + "/pictures";
    options_.inputs = {"samples"};
    options_.jobs = 2;
    options_.summary = true;
    std::string first, err;
    ASSERT_EQ(run(&first, &err), 0) << err;
    const auto lines = linesOf(first);
    ASSERT_EQ(lines.size(), 5 * options_.kinds.size());
    for (const auto& line : lines) {
        EXPECT_TRUE(JsonChecker(line).valid()) << line;
        EXPECT_EQ(line.find("\"error\""), std::string::npos) << line;
    }
    for (const char* portrait : {"astronaut.jpg", "grace_hopper.jpg"}) {
        EXPECT_NE(lineFor(lines, portrait, "face").find("\"m_faceBaseInfos\":[{"), std::string::npos) << portrait;
    }
    EXPECT_NE(lineFor(lines, "chelsea.jpg", "pet-face").find("\"m_facePetInfos\":[{"), std::string::npos);
    EXPECT_NE(lineFor(lines, "coffee.jpg", "face").find("\"m_faceBaseInfos\":[]"), std::string::npos);
    // The summary says what was measured, and nothing of a face, skeleton or person on the cup.
    std::string astronaut, coffee, hopper;
    for (const auto& line : linesOf(err)) {
        if (line.rfind("astronaut.jpg ", 0) == 0) astronaut = line;
        if (line.rfind("coffee.jpg ", 0) == 0) coffee = line;
        if (line.rfind("grace_hopper.jpg ", 0) == 0) hopper = line;
    }
    // The portrait's blue backdrop scores "sky" 0.33, under its threshold: not a label found.
    const size_t labelsAt = hopper.find("labels: ");
    ASSERT_NE(labelsAt, std::string::npos) << err;
    EXPECT_EQ(hopper.find("sky", labelsAt), std::string::npos) << err;
    EXPECT_NE(astronaut.find("faces: 1 (female "), std::string::npos) << err;
    EXPECT_NE(astronaut.find(" y, happy "), std::string::npos) << err;
    EXPECT_NE(astronaut.find("skeletons: 1  people: 0."), std::string::npos) << err;  // confirmed, and no cue reaches 1
    EXPECT_NE(coffee.find("faces: 0  pet faces: 0  skeletons: 0  people: 0.00"), std::string::npos) << err;
    for (const char* picture : {"astronaut", "chelsea", "coffee", "grace_hopper", "rocket"}) {
        const std::string line = lineFor(lines, std::string(picture) + ".jpg", "face");
        const std::string asset = line.substr(line.find("\"asset\":\"") + 9, 8);
        EXPECT_EQ(access((options_.drawDir + "/" + picture + "-" + asset + ".png").c_str(), R_OK), 0) << picture;
    }

    Korvid::resetExecuteCounters();
    std::string second;
    ASSERT_EQ(run(&second, &err), 0) << err;
    EXPECT_EQ(Korvid::maxConcurrentExecutes(), 0);  // nothing reached the framework
    const auto again = linesOf(second);
    ASSERT_EQ(again.size(), lines.size());
    for (const auto& line : again) EXPECT_NE(line.find("\"store\":true"), std::string::npos) << line;
    for (const char* image : {"astronaut.jpg", "chelsea.jpg"}) {
        for (const char* kind : {"face", "pet-face", "classification", "c300", "saliency"}) {
            auto stripTiming = [](std::string line) {
                return line.erase(line.find(",\"store\""), line.find(",\"result\"") - line.find(",\"store\""));
            };
            EXPECT_EQ(stripTiming(lineFor(again, image, kind)), stripTiming(lineFor(lines, image, kind)));
        }
    }
}

TEST_F(ExtractCommandTest, BadImagesAreReportedAndTheRunGoesOn) {
    const std::string notImage = dir_ + "/notes.jpg";
    std::ofstream(notImage) << "not a picture";
    const std::string unreadable = "/proc/self/mem";  // exists, but reading it from the start fails
    options_.kinds = {*parseKind("face")};
    // The astronaut named twice, once through another path: analysed and printed once.
    options_.inputs = {notImage, unreadable, "samples/astronaut.jpg", dir_ + "/missing.png", "samples/../samples/astronaut.jpg"};
    options_.summary = true;
    std::string out, err;
    ASSERT_EQ(run(&out, &err), 0) << err;
    // The summary says which files failed, not that they ran.
    for (const auto& line : linesOf(err)) {
        if (line.rfind("notes.jpg ", 0) == 0) {
            EXPECT_NE(line.find(" failed "), std::string::npos) << line;
            EXPECT_EQ(line.find(" ran "), std::string::npos) << line;
            EXPECT_NE(line.find("error: " + notImage + " is not a JPEG or PNG image"), std::string::npos) << line;
        }
    }
    EXPECT_NE(err.find("3 images in "), std::string::npos) << err;
    EXPECT_NE(err.find(", 2 with errors"), std::string::npos) << err;
    const auto lines = linesOf(out);
    ASSERT_EQ(lines.size(), 3u) << out;
    EXPECT_NE(lines[0].find("is not a JPEG or PNG image"), std::string::npos) << lines[0];
    EXPECT_NE(lines[1].find("cannot read"), std::string::npos) << lines[1];
    EXPECT_NE(lines[2].find("\"m_faceBaseInfos\":[{"), std::string::npos) << lines[2];
    EXPECT_NE(err.find("no such file or directory: " + dir_ + "/missing.png"), std::string::npos) << err;

    // Pictures into a file: refused before anything runs, not one error per image.
    options_.drawDir = notImage;
    EXPECT_EQ(run(&out, &err), 1);
    EXPECT_NE(err.find("vqfe extract: --draw " + notImage + ": cannot make a directory there"), std::string::npos) << err;
    EXPECT_TRUE(out.empty()) << out;
    options_.drawDir.clear();

    const std::string empty = dir_ + "/empty";
    ASSERT_EQ(mkdir(empty.c_str(), 0755), 0);
    options_.inputs = {empty};
    EXPECT_EQ(run(&out, &err), 1);
    EXPECT_NE(err.find("no JPEG or PNG images in " + empty), std::string::npos) << err;

    // A JPEG cut short is analysed (the decoder fills the rest grey) with a warning that
    // names it; a complete one, also with bytes appended after its end, gets none.
    std::ifstream in("samples/astronaut.jpg", std::ios::binary);
    const std::string whole((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string cut = dir_ + "/cut.jpg", appended = dir_ + "/appended.jpg";
    std::ofstream(cut, std::ios::binary) << whole.substr(0, whole.size() * 2 / 3);
    std::ofstream(appended, std::ios::binary) << whole << std::string("\xFF\xDA\x00\x04 more", 9);
    options_.inputs = {cut, appended};
    ASSERT_EQ(run(&out, &err), 0) << err;
    EXPECT_EQ(linesOf(out).size(), 2u) << out;
    EXPECT_NE(err.find("vqfe extract: warning: " + cut + " ends early (a truncated JPEG)"), std::string::npos) << err;
    EXPECT_EQ(err.find("warning: " + appended), std::string::npos) << err;
    for (const char* name : {"testdata/chelsea.jpg", "testdata/grace_hopper.jpg", "testdata/solvay.jpg"}) {
        std::ifstream photo(name, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(photo)), std::istreambuf_iterator<char>());
        EXPECT_FALSE(jpegEndsEarly(bytes)) << name;
        EXPECT_TRUE(jpegEndsEarly(bytes.substr(0, bytes.size() - 2))) << name;
    }
}

// Raises SIGINT when the first line of output is written, as Ctrl-C would.
class InterruptingBuffer : public std::stringbuf {
protected:
    std::streamsize xsputn(const char* data, std::streamsize n) override {
        if (!raised_) raised_ = (std::raise(SIGINT), true);
        return std::stringbuf::xsputn(data, n);
    }

private:
    bool raised_ = false;
};

// A file name that is not UTF-8: a SQLite store keeps its path as bytes; a PostgreSQL
// store cannot, and that file alone fails (it failed the whole batch). The JSON stays JSON.
TEST_F(ExtractCommandTest, AFileNameThatIsNotUtf8FailsAloneWithAPostgresStore) {
    const std::string odd = dir_ + "/caf\xe9.jpg";
    {
        std::ifstream in("samples/rocket.jpg", std::ios::binary);
        std::ofstream(odd, std::ios::binary) << in.rdbuf();
    }
    options_.kinds = {*parseKind("scene")};
    options_.inputs = {odd, "samples/coffee.jpg"};
    options_.storePath = dir_ + "/results.db";
    std::string out, err;
    ASSERT_EQ(run(&out, &err), 0) << err;
    for (const auto& line : linesOf(out)) {
        EXPECT_TRUE(JsonChecker(line).valid()) << line;
        EXPECT_EQ(line.find("\"error\""), std::string::npos) << line;
    }

    VQFeature::PgTestDatabase database;
    if (!database.available()) GTEST_SKIP() << VQFeature::PgTestDatabase::kSkipReason;
    options_.storePath = database.uri();
    ASSERT_EQ(run(&out, &err), 0) << err;
    const auto lines = linesOf(out);
    ASSERT_EQ(lines.size(), 2u) << out;
    EXPECT_NE(lines[0].find("its path is not UTF-8, which a PostgreSQL store cannot keep"), std::string::npos)
        << lines[0];
    EXPECT_EQ(lines[1].find("\"error\""), std::string::npos) << lines[1];
    EXPECT_NE(lines[1].find("\"m_SceneRecogInfo\":[{"), std::string::npos) << lines[1];
}

TEST_F(ExtractCommandTest, CtrlCFinishesTheImagesInHandAndTheRerunGoesOn) {
    // 20 photos: one job takes them as a batch of 16, then 4.
    for (int i = 0; i < 20; ++i) {
        std::ifstream in("samples/rocket.jpg", std::ios::binary);
        std::ofstream photo(dir_ + "/photo" + std::to_string(100 + i) + ".jpg", std::ios::binary);
        photo << in.rdbuf() << i;  // bytes after the picture's end: another digest, the same pixels
    }
    options_.kinds = {*parseKind("scene")};
    options_.storePath = dir_ + "/results.db";
    options_.inputs = {dir_};
    InterruptingBuffer buffer;
    std::ostream out(&buffer);
    std::ostringstream err;
    EXPECT_EQ(runExtract(options_, out, err), 130);
    EXPECT_EQ(linesOf(buffer.str()).size(), 16u) << buffer.str();
    EXPECT_NE(err.str().find("vqfe extract: interrupted: 16 of 20 images done; the store keeps their results"),
              std::string::npos) << err.str();
    // The handler is gone after the run: the next run is not interrupted and finds the 16 in the store.
    std::string again, errors;
    ASSERT_EQ(run(&again, &errors), 0) << errors;
    const auto lines = linesOf(again);
    ASSERT_EQ(lines.size(), 20u);
    size_t fromStore = 0;
    for (const auto& line : lines) fromStore += line.find("\"store\":true") != std::string::npos;
    EXPECT_EQ(fromStore, 16u);
}

TEST_F(ExtractCommandTest, CorruptStoreIsRefusedAndKeptAsItWas) {
    const std::string store = dir_ + "/results.db";
    const std::string garbage(8192, 'x');
    std::ofstream(store, std::ios::binary) << garbage;
    options_.kinds = {*parseKind("face")};
    options_.storePath = store;
    options_.inputs = {"samples/astronaut.jpg"};
    std::string out, err;
    EXPECT_EQ(run(&out, &err), 1);
    EXPECT_TRUE(out.empty()) << out;
    EXPECT_NE(err.find("result store " + store), std::string::npos) << err;
    std::ifstream in(store, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), garbage);
}

}  // namespace
}  // namespace vqfe
