#include "engine/PointCloud.h"
#include "engine/EngineTest.h"

#include <glm/gtc/matrix_transform.hpp>

namespace {

class Placement : public EngineTest {
protected:
    Placement() : cloud(*findCloud(loadSmallCloud())) {}
    PointCloud& cloud;
};

} // namespace

TEST_F(Placement, ScaleAppliesToTheFirstThreeColumns) {
    const glm::dmat4 matrix(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16);
    cloud.setModelMatrix(matrix);
    EXPECT_EQ(1.0, cloud.getScale());
    EXPECT_EQ(matrix, cloud.getModelMatrix());
    cloud.setScale(2.0);
    EXPECT_EQ(2.0, cloud.getScale());
    for (int column = 0; column < 4; ++column) {
        EXPECT_EQ(matrix[column] * (column < 3 ? 2.0 : 1.0), cloud.getModelMatrix()[column]) << column;
    }
}

TEST_F(Placement, RelativeUndoesApply) {
    cloud.setModelMatrix(glm::rotate(glm::translate(glm::dmat4(1.0), {10, 20, 30}), 0.7, {1, 2, 3}));
    cloud.setScale(3.0);
    const glm::dvec4 point(1, -2, 5, 1);
    const glm::dvec4 back = cloud.makeVectorRelative(cloud.applyTransformationsToVector(point));
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(point[i], back[i], 1e-12) << i;
}

TEST_F(Placement, TranslationIsNotScaled) {
    cloud.setModelMatrix(glm::translate(glm::dmat4(1.0), {10, 20, 30}));
    cloud.setScale(2.0);
    EXPECT_EQ(glm::dvec4(12, 24, 36, 1), cloud.applyTransformationsToVector({1, 2, 3, 1}));
}
