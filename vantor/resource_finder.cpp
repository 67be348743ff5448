#include "vantor/resource_finder.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <regex>

#include "vantor/asset_manager_holder.h"
#include "vantor/vantor_log.h"

namespace VQFeature {

namespace {

// Reads the file whole into a zero-filled malloc block of size + 1 bytes. *size gets the
// file's length as soon as it is known. Null when the file cannot be opened or read whole.
void* readWholeFile(const std::string& path, uint64_t* size) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        return nullptr;
    }
    void* block = nullptr;
    if (std::fseek(file, 0, SEEK_END) == 0) {
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
    if (AAssetManager* manager = AssetManagerHolder::getInstance().get()) {
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

std::string VantorResourceFinderImpl::getNormalizedNameOfModel(const std::string& name) {
    static const std::regex kVersion("([[:w:]]+)(_v[0-9])+.*", std::regex::ECMAScript);
    static const std::regex kSuffix("([[:w:]]+)((\\.model)+|(_model)+|(\\.dat)+)", std::regex::ECMAScript);

    const size_t slash = name.rfind('/');
    std::string text = slash == std::string::npos ? name : name.substr(slash + 1);
    std::smatch match;
    if (std::regex_search(text, match, kVersion)) {
        text = match[1].str();
    }
    if (std::regex_search(text, match, kSuffix)) {
        text = match[1].str();
    }
    return text;
}

}  // namespace VQFeature
