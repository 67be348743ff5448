#include "model/model_loading.h"

#include "model/cascade_check.h"

namespace kv {

cv::FileStorage openModelStorage(const ModelBlob& blob) {
    if (blob.data == nullptr || blob.size == 0) throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" is empty");
    try {
        cv::FileStorage fs(std::string(reinterpret_cast<const char*>(blob.data), blob.size),
                           cv::FileStorage::READ | cv::FileStorage::MEMORY);
        if (fs.isOpened()) return fs;
    } catch (const cv::Exception&) {
    }
    throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" is not readable");
}

std::string cascadeText(const ModelBlob& blob) {
    try {
        return checkedCascadeText(blob.data, blob.size);
    } catch (const Error& e) {
        throw Error(e.code, "model \"" + blob.name + "\" is not a cascade: " + e.what());
    }
}

void readCascade(const std::string& text, const std::string& name, cv::CascadeClassifier& out) {
    bool ok = false;
    try {
        cv::FileStorage fs(text, cv::FileStorage::READ | cv::FileStorage::MEMORY);
        ok = fs.isOpened() && out.read(fs.getFirstTopLevelNode()) && !out.empty();
    } catch (const cv::Exception&) {
        ok = false;
    }
    if (!ok) throw Error(Vantor::INVALID_MODEL, "model \"" + name + "\" is not a cascade");
}

cv::FileStorage openParams(const ModelBlob& blob, const std::string& kind) {
    cv::FileStorage fs = openModelStorage(blob);
    std::string format, fileKind;
    try {
        fs["format"] >> format;
        fs["kind"] >> fileKind;
    } catch (const cv::Exception&) {
    }
    if (format != "korvid-params" || fileKind != kind) {
        throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" is not a " + kind + " parameter file");
    }
    return fs;
}

double paramOr(const cv::FileStorage& fs, const char* key, double fallback) {
    cv::FileNode n = fs[key];
    return n.isReal() || n.isInt() ? static_cast<double>(n) : fallback;
}

}  // namespace kv
