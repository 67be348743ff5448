#include "vantor/resource_finder.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vantor/asset_manager_holder.h"
#include "vantor/vantor_log.h"

namespace VQFeature {

namespace {

// Reads the file whole into a zero-filled malloc block of size + 1 bytes. *size gets the
// file's length as soon as it is known. Null when the file cannot be opened or read whole,
// or is not a regular file (a directory opens, and its "length" is LONG_MAX).
void* readWholeFile(const std::string& path, uint64_t* size) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        return nullptr;
    }
    void* block = nullptr;
    struct stat info;
    if (fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode) && std::fseek(file, 0, SEEK_END) == 0) {
        long length = std::ftell(file);
        if (length >= 0) {
            *size = static_cast<uint64_t>(length);
            std::rewind(file);
            block = std::calloc(static_cast<size_t>(length) + 1, 1);
            if (block != nullptr && std::fread(block, 1, static_cast<size_t>(length), file) != static_cast<size_t>(length)) {
                std::free(block);
                block = nullptr;
            }
        }
    }
    std::fclose(file);
    return block;
}

}  // namespace

VantorResourceFinderImpl::VantorResourceFinderImpl(const std::string& modelDir) : modelDir(modelDir) {}

VantorResourceFinderImpl::~VantorResourceFinderImpl() = default;

bool VantorResourceFinderImpl::findResource(Vantor::VantorAlgorithmModel& model) {
    const std::string& name = model.name;
    // Only dotted names are normalised: "qm_matting_model" stays as it is.
    const std::string stem =
        (!name.empty() && name.find('.') != std::string::npos) ? getNormalizedNameOfModel(name) : name;
    // modelDir is used as given, even when it already ends in '/'.
    const std::string path = modelDir + "/" + stem + ".model";
    logVantorDebug(stem);
    logVantorDebug(path);

    void* block = nullptr;
    if (path.find('\0') != std::string::npos) {
        // A name with a NUL in it names no file: the C functions would stop at the NUL
        // and open another one (found by fuzz/model_name_fuzzer.cpp).
    } else if (AAssetManager* manager = AssetManagerHolder::getInstance().get()) {
        size_t length = 0;
        block = readWholeAsset(manager, path, &length);
        model.size = length;
    } else {
        block = readWholeFile(path, &model.size);
    }
    if (block == nullptr) {
        // The size may already hold the length; the data pointer is left as it was.
        logVantorDebug("chenge data ptr == nullptr");  // wording kept as the logs always had it
        return false;
    }
    model.data = block;
    return true;
}

// The blocks of findResource come from malloc, so they go back with free (the base's
// array delete would not match).
bool VantorResourceFinderImpl::releaseResource(Vantor::VantorAlgorithmModel& model) {
    std::free(model.data);
    model.data = nullptr;
    model.size = 0;
    return true;
}

namespace {

// The word class [[:w:]] of the "C" locale: ASCII letters, digits and '_'.
bool isWordChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool hasAt(const std::string& text, size_t at, const char* piece) {
    return text.compare(at, std::strlen(piece), piece) == 0;
}

// First capture of the leftmost ECMAScript match of "([[:w:]]+)X...", where follows(p)
// says whether X matches at p. The match starts at the first word run [run, end) that
// has such a p with run < p <= end, and the greedy capture ends at the largest one.
template <typename Follows>
bool captureWordRun(const std::string& text, Follows follows, std::string& capture) {
    size_t run = 0;
    while (run < text.size()) {
        if (!isWordChar(text[run])) {
            ++run;
            continue;
        }
        size_t end = run;
        while (end < text.size() && isWordChar(text[end])) ++end;
        for (size_t p = end; p > run; --p) {
            if (follows(p)) {
                capture = text.substr(run, p - run);
                return true;
            }
        }
        run = end;
    }
    return false;
}

}  // namespace

// Matches the version pattern "([[:w:]]+)(_v[0-9])+.*" and then the suffix pattern
// "([[:w:]]+)((\.model)+|(_model)+|(\.dat)+)" as std::regex_search would, keeping the
// first capture of each, in linear time and constant stack: std::regex's backtracking
// recursed once per character and overflowed the stack on names of a few ten thousand
// bytes (found by fuzz/model_name_fuzzer.cpp, which checks this against std::regex).
std::string VantorResourceFinderImpl::getNormalizedNameOfModel(const std::string& name) {
    const size_t slash = name.rfind('/');
    std::string text = slash == std::string::npos ? name : name.substr(slash + 1);
    std::string capture;
    auto version = [&text](size_t p) {
        return hasAt(text, p, "_v") && p + 2 < text.size() && text[p + 2] >= '0' && text[p + 2] <= '9';
    };
    if (captureWordRun(text, version, capture)) text = capture;
    auto suffix = [&text](size_t p) { return hasAt(text, p, ".model") || hasAt(text, p, "_model") || hasAt(text, p, ".dat"); };
    if (captureWordRun(text, suffix, capture)) text = capture;
    return text;
}

}  // namespace VQFeature
