#include "edit/ClipBox.h"

#include <glm/gtc/matrix_transform.hpp>
#include <gtest/gtest.h>
#include <tuple>

// Opposite faces of a box follow each other.
static ClipBox box(const glm::dvec3& low, const glm::dvec3& high) {
    ClipBox made;
    made.setPlanes({glm::dvec3{-1, 0, 0}, low, glm::dvec3{1, 0, 0}, high, glm::dvec3{0, -1, 0}, low,
                    glm::dvec3{0, 1, 0}, high, glm::dvec3{0, 0, -1}, low, glm::dvec3{0, 0, 1}, high});
    return made;
}

TEST(ClipBox, TestsSpheres) {
    const ClipBox clip = box({0, 0, 0}, {10, 20, 30});
    const std::tuple<const char*, glm::dvec3, double, ClipBox::Test> cases[] = {
        {"wholly inside", {5, 10, 15}, 4.0, ClipBox::INSIDE},
        {"touching from inside", {5, 10, 15}, 5.0, ClipBox::INSIDE},
        {"cut", {5, 10, 15}, 5.1, ClipBox::CUT},
        {"wholly outside", {12, 10, 15}, 1.0, ClipBox::OUTSIDE},
        {"touching from outside", {12, 10, 15}, 2.0, ClipBox::INSIDE}, // neither cut nor beyond
        {"a place inside", {5, 10, 15}, 0.0, ClipBox::INSIDE},
        {"a place outside", {5, 10, 31}, 0.0, ClipBox::OUTSIDE},
        {"cut by one face and beyond another", {10, 25, 15}, 1.0, ClipBox::OUTSIDE},
    };
    for (const auto& [name, p, radius, expected] : cases) {
        EXPECT_EQ(expected, clip.testIntersection(p.x, p.y, p.z, radius)) << name;
    }
}

TEST(ClipBox, GivesPlaneEquationsThatArePositiveInside) {
    ClipBox clip = box({0, 0, 0}, {10, 20, 30});
    clip.setTransformation(glm::translate(glm::dmat4(1.0), {1, 2, 3}));
    EXPECT_EQ(glm::dvec4(1, 0, 0, -1), clip.getPlaneEquation(0));
    EXPECT_EQ(glm::dvec4(-1, 0, 0, 11), clip.getPlaneEquation(1));
    EXPECT_EQ(glm::dvec4(0, 0, -1, 33), clip.getPlaneEquation(5));
}
