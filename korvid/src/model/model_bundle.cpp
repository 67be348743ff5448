#include "model/model_bundle.h"

#include <cstring>

namespace kv {

namespace {

constexpr char kMagic[] = "korvid-bundle\n";

[[noreturn]] void malformed(const ModelBlob& blob) {
    throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" is a malformed bundle");
}

}  // namespace

std::map<std::string, ModelBlob> bundleParts(const ModelBlob& blob) {
    std::map<std::string, ModelBlob> parts;
    const size_t magic = sizeof(kMagic) - 1;
    if (blob.data == nullptr || blob.size < magic || std::memcmp(blob.data, kMagic, magic) != 0) return parts;
    size_t at = magic;
    while (at < blob.size) {
        const auto* begin = reinterpret_cast<const char*>(blob.data + at);
        const auto* eol = static_cast<const char*>(std::memchr(begin, '\n', blob.size - at));
        if (eol == nullptr) malformed(blob);
        const std::string header(begin, eol);
        const size_t space = header.find(' ');
        if (space == 0 || space == std::string::npos || header.size() - space > 12) malformed(blob);
        size_t size = 0;
        for (size_t i = space + 1; i < header.size(); ++i) {
            if (header[i] < '0' || header[i] > '9') malformed(blob);
            size = size * 10 + static_cast<size_t>(header[i] - '0');
        }
        at += header.size() + 1;
        if (space + 1 == header.size() || size > blob.size - at) malformed(blob);
        ModelBlob part = blob;
        part.name = blob.name + "/" + header.substr(0, space);
        part.data = blob.data + at;
        part.size = size;
        if (!parts.emplace(header.substr(0, space), part).second) malformed(blob);
        at += size;
    }
    return parts;
}

std::optional<ParamsAndNetwork> paramsAndNetwork(const ModelBlob& blob) {
    auto parts = bundleParts(blob);
    if (parts.empty()) return std::nullopt;
    if (!parts.count("params") || !parts.count("network")) {
        throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" lacks its parameters or network");
    }
    return ParamsAndNetwork{parts.at("params"), parts.at("network")};
}

}  // namespace kv
