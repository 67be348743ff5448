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

}  // namespace
}  // namespace kv
