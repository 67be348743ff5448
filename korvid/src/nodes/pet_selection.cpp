#include "nodes/pet_selection.h"

#include <algorithm>

namespace kv {

namespace {

double overUnion(const cv::Rect2f& a, const cv::Rect2f& b) {
    const double common = (a & b).area();
    const double all = a.area() + b.area() - common;
    return all > 0 ? common / all : 0.0;
}

}  // namespace

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

std::vector<ObjectDetection> withoutPetsThatArePersons(const std::vector<ObjectDetection>& objects) {
    std::vector<ObjectDetection> kept;
    for (const ObjectDetection& o : objects) {
        const bool pet = o.cocoClass == kCocoCat || o.cocoClass == kCocoDog;
        const bool person = pet && std::any_of(objects.begin(), objects.end(), [&](const ObjectDetection& p) {
            return p.cocoClass == kCocoPerson && p.score >= kPersonOverPet && overUnion(p.box, o.box) >= 0.5;
        });
        if (!person) kept.push_back(o);
    }
    return kept;
}

}  // namespace kv
