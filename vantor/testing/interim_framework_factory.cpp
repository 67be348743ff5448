// INTERIM, test-only: the framework factory symbols until the open framework is linked.
// Tests always install a ScopedAlgorithmSystemFactory, so these are never called.
#include "Vantor/VantorAlgorithmSystem.h"

namespace Vantor {
VantorAlgorithmSystem* VantorAlgorithmFactory::CreateAlgorithmSystem() { return nullptr; }
void VantorAlgorithmFactory::DestroyAlgorithmSystem(VantorAlgorithmSystem* system) { delete system; }
}  // namespace Vantor
