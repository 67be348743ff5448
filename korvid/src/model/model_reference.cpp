#include "model/model_reference.h"

#include <cstring>

#include "model/error.h"

namespace kv {

namespace {

constexpr char kMagic[] = "korvid-ref\n";
constexpr size_t kMaxName = 128;

bool validName(const std::string& name) {
    if (name.empty() || name.size() > kMaxName) return false;
    for (char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
        if (!ok) return false;
    }
    return true;
}

}  // namespace

std::optional<ModelReference> modelReference(const ModelBlob& blob) {
    const size_t magic = sizeof(kMagic) - 1;
    if (blob.data == nullptr || blob.size < magic || std::memcmp(blob.data, kMagic, magic) != 0) return std::nullopt;
    const std::string text(reinterpret_cast<const char*>(blob.data) + magic, blob.size - magic);
    const size_t slash = text.find('/');
    if (text.empty() || text.back() != '\n' || slash == std::string::npos) {
        throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" is a malformed reference");
    }
    ModelReference ref{text.substr(0, slash), text.substr(slash + 1, text.size() - slash - 2)};
    if (!validName(ref.model) || !validName(ref.part)) {
        throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" is a malformed reference");
    }
    return ref;
}

}  // namespace kv
