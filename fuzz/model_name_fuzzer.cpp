// Fuzz target: model names as graphs in the app's assets write them, through
// VantorResourceFinderImpl::getNormalizedNameOfModel and findResource over a model
// directory holding one model. Checked on every input: the stem is what std::regex_search
// with the two ECMAScript patterns gives (on names short enough for std::regex's
// recursion), and a piece of the name's last path component, so a dotted name can never
// leave the model directory; a found model is the one model there and goes back through
// releaseResource; a name that is not found leaves no block behind.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <string>

#include "vantor/resource_finder.h"

namespace {

[[noreturn]] void fail(const char* what, const std::string& name) {
    std::fprintf(stderr, "model name: %s (name of %zu bytes)\n", what, name.size());
    std::abort();
}

// A model directory with qm_face.model ("face") in it, removed at exit.
struct ModelDir {
    ModelDir() {
        char pattern[] = "/tmp/vqfe-fuzz-models-XXXXXX";
        if (mkdtemp(pattern) == nullptr) std::abort();
        path = pattern;
        std::ofstream(path + "/qm_face.model") << "face";
    }
    ~ModelDir() {
        std::remove((path + "/qm_face.model").c_str());
        rmdir(path.c_str());
    }
    std::string path;
};

// The two patterns as std::regex runs them: the reference for the hand-written matcher.
std::string regexStem(const std::string& name) {
    static const std::regex kVersion("([[:w:]]+)(_v[0-9])+.*", std::regex::ECMAScript);
    static const std::regex kSuffix("([[:w:]]+)((\\.model)+|(_model)+|(\\.dat)+)", std::regex::ECMAScript);
    const size_t slash = name.rfind('/');
    std::string text = slash == std::string::npos ? name : name.substr(slash + 1);
    std::smatch match;
    if (std::regex_search(text, match, kVersion)) text = match[1].str();
    if (std::regex_search(text, match, kSuffix)) text = match[1].str();
    return text;
}

// Longer names are beyond what std::regex's recursion survives under AddressSanitizer.
constexpr size_t kRegexReferenceLimit = 4096;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ModelDir dir;
    static VQFeature::VantorResourceFinderImpl finder(dir.path);
    const std::string name(reinterpret_cast<const char*>(data), size);

    const std::string stem = VQFeature::VantorResourceFinderImpl::getNormalizedNameOfModel(name);
    if (size <= kRegexReferenceLimit && stem != regexStem(name)) fail("the stem differs from std::regex's", name);
    const size_t slash = name.rfind('/');
    const std::string last = slash == std::string::npos ? name : name.substr(slash + 1);
    if (last.find(stem) == std::string::npos) fail("the stem is not part of the last path component", name);

    Vantor::VantorAlgorithmModel model;
    model.name = name;
    if (finder.findResource(model)) {
        if (model.data == nullptr || model.size != 4 || std::string(static_cast<char*>(model.data), 4) != "face") {
            fail("found something other than the one model", name);
        }
        finder.releaseResource(model);
        if (model.data != nullptr || model.size != 0) fail("releaseResource left a block", name);
    } else if (model.data != nullptr) {
        fail("a failed lookup left a block", name);
    }
    return 0;
}
