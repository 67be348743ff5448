#include "nodes/pet_selection.h"

#include <gtest/gtest.h>

namespace kv {
namespace {

PetDetection pet(int type, float score, cv::Rect body) {
    PetDetection p;
    p.type = type;
    p.score = score;
    p.body = body;
    return p;
}

TEST(PetSelection, OneTypePerAnimalBestFirst) {
    // The dog photo: a dog and, on nearly the same box, a weaker cat; a second animal apart.
    const std::vector<PetDetection> found = {pet(2, 0.67f, {100, 80, 300, 260}), pet(1, 0.41f, {110, 90, 290, 250}),
                                             pet(1, 0.52f, {500, 100, 120, 100})};
    const std::vector<PetDetection> kept = onePetPerAnimal(found);
    ASSERT_EQ(kept.size(), 2u);
    EXPECT_EQ(kept[0].type, 2);
    EXPECT_EQ(kept[0].score, 0.67f);
    EXPECT_EQ(kept[1].type, 1);
    EXPECT_EQ(kept[1].score, 0.52f);

    // A head box inside the body box of the same animal is the same animal; two cats side by
    // side touching at the edge are two.
    EXPECT_EQ(onePetPerAnimal({pet(1, 0.6f, {0, 0, 400, 400}), pet(2, 0.4f, {50, 50, 120, 120})}).size(), 1u);
    EXPECT_EQ(onePetPerAnimal({pet(1, 0.6f, {0, 0, 200, 200}), pet(1, 0.5f, {180, 0, 200, 200})}).size(), 2u);
}

TEST(PetSelection, PetsWithoutBodyAndEmptyBoxesAreKept) {
    PetDetection faceOnly;
    faceOnly.face = cv::Rect(10, 10, 40, 40);
    EXPECT_EQ(onePetPerAnimal({faceOnly, faceOnly}).size(), 2u);
    EXPECT_TRUE(onePetPerAnimal({}).empty());
    // An empty box neither divides by zero nor swallows anything.
    EXPECT_EQ(onePetPerAnimal({pet(1, 0.6f, {0, 0, 0, 0}), pet(2, 0.5f, {0, 0, 0, 0})}).size(), 2u);
}

TEST(PetSelection, APetOnAPersonsBoxIsThePerson) {
    const auto obj = [](int cls, float score, cv::Rect2f box) { return ObjectDetection{box, cls, score}; };
    // The astronaut on the Moon: a dog (0.51) on the box of a person (0.43), whatever the
    // pet's score; the frisbee beside them stays.
    const std::vector<ObjectDetection> moon = {obj(kCocoDog, 0.51f, {153, 29, 211, 466}), obj(kCocoPerson, 0.43f, {153, 24, 212, 488}),
                                               obj(34, 0.32f, {20, 20, 30, 30})};
    const std::vector<ObjectDetection> kept = withoutPetsThatArePersons(moon);
    ASSERT_EQ(kept.size(), 2u);
    EXPECT_EQ(kept[0].cocoClass, kCocoPerson);
    EXPECT_EQ(kept[1].cocoClass, 34);
    // A cat in someone's arms lies inside the person's box and stays; so does a dog beside a
    // person, and a pet on a weak person's box (0.3: the detector is not sure of the person).
    EXPECT_EQ(withoutPetsThatArePersons({obj(kCocoPerson, 0.8f, {0, 0, 400, 600}), obj(kCocoCat, 0.6f, {100, 200, 150, 120})}).size(), 2u);
    EXPECT_EQ(withoutPetsThatArePersons({obj(kCocoPerson, 0.8f, {0, 0, 200, 600}), obj(kCocoDog, 0.6f, {210, 300, 300, 300})}).size(), 2u);
    EXPECT_EQ(withoutPetsThatArePersons({obj(kCocoPerson, 0.3f, {0, 0, 200, 400}), obj(kCocoCat, 0.6f, {0, 0, 200, 400})}).size(), 2u);
    // Empty boxes divide by nothing.
    EXPECT_EQ(withoutPetsThatArePersons({obj(kCocoPerson, 0.8f, {0, 0, 0, 0}), obj(kCocoCat, 0.6f, {0, 0, 0, 0})}).size(), 2u);
}

}  // namespace
}  // namespace kv
