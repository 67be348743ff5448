// Which of the object detector's pets a pet node reports. Pure function, thread-safe.
#pragma once

#include <vector>

#include "nodes/pet_detector.h"

namespace kv {

// One type per animal: the detector scores cat and dog separately, so one animal can come
// back as both (the dog photo: a dog and a cat on one box). A pet whose body overlaps a
// better pet's (intersection over union 0.5, or 70 % of the smaller inside the larger) is
// the same animal and dropped; pets without a body (cascade only) are all kept. pets best
// first, as the detector returns them; the order is kept.
std::vector<PetDetection> onePetPerAnimal(const std::vector<PetDetection>& pets);

}  // namespace kv
