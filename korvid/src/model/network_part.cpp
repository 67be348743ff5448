#include "model/network_part.h"

#include <cstdio>

namespace kv {

NetworkPart::NetworkPart(const ModelBlob& part, NetworkShape shape) : name_(part.name), shape_(std::move(shape)), cache_(part.networks) {
    reference_ = modelReference(part);
    if (!reference_) network_ = loadNetwork({{"network", part}}, "network", shape_);
}

std::shared_ptr<Network> NetworkPart::get() {
    if (network_ || !reference_ || failed_) return network_;
    try {
        if (cache_ == nullptr) throw Error(Vantor::INVALID_MODEL, "no network cache to fetch it through");
        const NetworkReadScope reads;
        network_ = cache_->resolve(*reference_, shape_);
    } catch (const Error& e) {
        failed_ = true;
        std::fprintf(stderr, "korvid: model \"%s\" names \"%s\", which cannot be used (%s); the node goes on without it\n", name_.c_str(),
                     reference_->text().c_str(), e.what());
    }
    return network_;
}

}  // namespace kv
