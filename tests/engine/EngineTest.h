#pragma once

#include "engine/EngineState.h"
#include "engine/PointCloud.h"
#include "nimbrel/NimbrelEngine.h"
#include "support/PointFileMaker.h"
#include "support/TempDir.h"

#include <algorithm>
#include <glm/gtc/type_ptr.hpp>
#include <gtest/gtest.h>

// An armed engine with an empty table, before and after.
class EngineTest : public testing::Test {
protected:
    EngineTest() { EXPECT_EQ(1, initEngine("key")); }
    ~EngineTest() override {
        while (!pointClouds.empty()) closePointCloud(pointClouds.back()->getID());
    }

    int loadSmallCloud(const std::string& name = "cloud") {
        return loadPointCloudFile(dir.writeWide(name, smallCloud().make()).c_str());
    }

    // Arms the clip box from `low` to `high`.
    static void clipTo(const glm::dvec3& low, const glm::dvec3& high, int mode, const std::array<float, 4>& tint = {}) {
        const double planes[] = {-1, 0, 0, low.x,  0, 0, 0, -1, 0, 0, low.y,  0, 0, 0, -1, 0, 0, low.z,
                                 1,  0, 0, high.x, 0, 0, 0, 1,  0, 0, high.y, 0, 0, 0, 1,  0, 0, high.z};
        activateClipBox(planes, tint.data(), mode);
    }

    static NimbrelMatrix byValue(const glm::dmat4& matrix) {
        NimbrelMatrix out;
        std::copy_n(glm::value_ptr(matrix), 16, out.m);
        return out;
    }

    const TempDir dir;
};
