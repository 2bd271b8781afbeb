#pragma once

#include "format/FileMemoryMap.h"
#include "ground/Pools.h"
#include "ground/ThreadPool.h"
#include "stream/GPUBatch.h"
#include "stream/OPC.h"
#include "stream/OPCNode.h"
#include "support/PointFileMaker.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <queue>

// The tree of one point file, without an engine around it.
class StreamTest : public testing::Test {
protected:
    ~StreamTest() override { diskPool().WaitAll(); }

    void open(const PointFileMaker& maker) {
        const auto file = std::make_shared<FileMemoryMap>();
        file->openFile(dir.writeWide("cloud", maker.make()), false, 0);
        opc = std::make_unique<OPC>(file);
        ASSERT_TRUE(opc->isLoaded());
    }
    OPCNode& node(int i) { return static_cast<OPCNode&>(*opc->getNode(i)); }
    bool resident(int i) { return node(i).getGPUBatch(0)->isResident(); }

    // The load pass of a camera.
    void request(int window) {
        std::queue<OPCInterface*> queue;
        for (queue.push(opc->getNode(0)); !queue.empty(); queue.pop()) queue.front()->cache(window, &queue);
    }
    void load(int window) {
        request(window);
        diskPool().WaitAll();
    }

    const TempDir dir;
    std::unique_ptr<OPC> opc;
};
