// Which of the object detector's pets a pet node reports. Pure functions, thread-safe.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "dnn/object_detector.h"
#include "nodes/pet_detector.h"

namespace kv {

// One type per animal: the detector scores cat and dog separately, so one animal can come
// back as both (the dog photo: a dog and a cat on one box). A pet whose body overlaps a
// better pet's (intersection over union 0.5, or 70 % of the smaller inside the larger) is
// the same animal and dropped; pets without a body (cascade only) are all kept. pets best
// first, as the detector returns them; the order is kept.
std::vector<PetDetection> onePetPerAnimal(const std::vector<PetDetection>& pets);

// The detections without the cats and dogs that are a person: a box the detector also calls
// a person of at least kPersonOverPet with nearly the same extent (intersection over union
// 0.5; a pet in someone's arms lies inside the person's box, far below that) is a person
// in a suit or a costume (the astronaut on the Moon as a dog), whatever the pet's score.
constexpr float kPersonOverPet = 0.38f;
std::vector<ObjectDetection> withoutPetsThatArePersons(const std::vector<ObjectDetection>& objects);

}  // namespace kv
