#pragma once

#include "engine/EngineState.h"
#include "engine/PointCloud.h"
#include "nimbrel/NimbrelEngine.h"
#include "support/PointFileMaker.h"
#include "support/TempDir.h"

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

    const TempDir dir;
};
