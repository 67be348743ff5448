// Where VantorSystem gets its framework algorithm system from: the framework's own
// factory, unless a test installed a replacement (ScopedAlgorithmSystemFactory), e.g.
// one handing out mocks. Not synchronised: install a replacement before any
// VantorSystem is created and keep it until the last one is destroyed.
#pragma once

#include <functional>

#include "Vantor/VantorAlgorithmSystem.h"

namespace VQFeature {

Vantor::VantorAlgorithmSystem* createAlgorithmSystem();
void destroyAlgorithmSystem(Vantor::VantorAlgorithmSystem* system);

// Test seam: while alive, createAlgorithmSystem/destroyAlgorithmSystem call these.
class ScopedAlgorithmSystemFactory {
public:
    using Create = std::function<Vantor::VantorAlgorithmSystem*()>;
    using Destroy = std::function<void(Vantor::VantorAlgorithmSystem*)>;

    ScopedAlgorithmSystemFactory(Create create, Destroy destroy);
    ScopedAlgorithmSystemFactory(const ScopedAlgorithmSystemFactory&) = delete;
    ScopedAlgorithmSystemFactory& operator=(const ScopedAlgorithmSystemFactory&) = delete;
    ~ScopedAlgorithmSystemFactory();

private:
    Create previousCreate_;
    Destroy previousDestroy_;
};

}  // namespace VQFeature
