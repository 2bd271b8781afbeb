// The exports of voxel models. The four counters are defined with the export itself, in voxel/VoxelProgress.cpp; this
// file can't know them as what they are, since it includes the header that shows them to hosts as plain integers.

#include "engine/EngineState.h"
#include "engine/PointCloud.h"
#include "format/OPCHeader.h"
#include "ground/Log.h"
#include "nimbrel/NimbrelEngine.h"
#include "stream/OPC.h"
#include "voxel/VoxelExport.h"

float voxelProgress(); // of voxel/VoxelProgress.h

float getVoxelProgress() {
    return voxelProgress();
}

void exportVoxelModel(int id, int format, const wchar_t* path, int useIntensity, double voxelSize, double scale) {
    if (!path) return;
    guarded(0, [=] {
        VoxelExport model(format, toUtf8(path));
        if (!model.isOpen()) return 0;
        bool isKnown = false;
        withCloud(id, [&](PointCloud& cloud) {
            isKnown = true;
            OPC& opc = cloud.getOPC();
            const int32_t nodes = opc.withHeader([](OPCHeader& header) { return header.nodeCount; });
            model.extract(*opc.getRootNode(), nodes, voxelSize, scale);
        });
        if (!isKnown) setLastError("no cloud has this id");
        constexpr int LOW_BYTE = 0xFF;
        model.write((useIntensity & LOW_BYTE) != 0);
        return 0;
    });
}

void nimbrelGetVoxelReport(NimbrelVoxelReport* out) {
    if (!out) return;
    const VoxelReport report = VoxelExport::report();
    *out = {report.state, report.unreadNodes, report.points,  report.cells,
            report.cubes, report.size[0],     report.size[1], report.size[2]};
}
