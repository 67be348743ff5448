#include "nodes/pet_selection.h"

#include <algorithm>

namespace kv {

std::vector<PetDetection> onePetPerAnimal(const std::vector<PetDetection>& pets) {
    std::vector<PetDetection> kept;
    for (const PetDetection& pet : pets) {
        const bool seen = pet.body && !pet.body->empty() && std::any_of(kept.begin(), kept.end(), [&](const PetDetection& better) {
            if (!better.body || better.body->empty()) return false;
            const double common = (*pet.body & *better.body).area();
            const double smaller = std::min(pet.body->area(), better.body->area());
            return common / (pet.body->area() + better.body->area() - common) >= 0.5 || common >= 0.7 * smaller;
        });
        if (!seen) kept.push_back(pet);
    }
    return kept;
}

}  // namespace kv
