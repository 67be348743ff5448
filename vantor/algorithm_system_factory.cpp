#include "vantor/algorithm_system_factory.h"

#include <utility>

namespace VQFeature {

namespace {

ScopedAlgorithmSystemFactory::Create& createOverride() {
    static ScopedAlgorithmSystemFactory::Create create;
    return create;
}

ScopedAlgorithmSystemFactory::Destroy& destroyOverride() {
    static ScopedAlgorithmSystemFactory::Destroy destroy;
    return destroy;
}

}  // namespace

Vantor::VantorAlgorithmSystem* createAlgorithmSystem() {
    if (createOverride()) {
        return createOverride()();
    }
    return Vantor::VantorAlgorithmFactory::CreateAlgorithmSystem();
}

void destroyAlgorithmSystem(Vantor::VantorAlgorithmSystem* system) {
    if (destroyOverride()) {
        destroyOverride()(system);
        return;
    }
    Vantor::VantorAlgorithmFactory::DestroyAlgorithmSystem(system);
}

ScopedAlgorithmSystemFactory::ScopedAlgorithmSystemFactory(Create create, Destroy destroy)
    : previousCreate_(std::exchange(createOverride(), std::move(create))),
      previousDestroy_(std::exchange(destroyOverride(), std::move(destroy))) {}

ScopedAlgorithmSystemFactory::~ScopedAlgorithmSystemFactory() {
    createOverride() = std::move(previousCreate_);
    destroyOverride() = std::move(previousDestroy_);
}

}  // namespace VQFeature
