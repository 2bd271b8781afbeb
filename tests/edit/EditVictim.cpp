// Edits a cloud at random until it is killed: editVictim FILE FOLDER SEED

#include "edit/EditCloud.h"
#include "engine/EngineState.h"
#include "engine/PointCloud.h"
#include "nimbrel/NimbrelEngine.h"
#include "stream/OPC.h"

#include <cstdlib>
#include <string>
#include <unistd.h>

int main(int count, char** arguments) {
    // Without a standard output, so that the cloud's file must not take its place and the diagnostics.
    if (count != 4 || ::close(STDOUT_FILENO) != 0) return 2;
    const std::string path = arguments[1];
    const std::string folder = arguments[2];
    Random random(static_cast<unsigned>(std::atoi(arguments[3])));
    initEngine("key");
    const int id = loadPointCloudFile(std::wstring(path.begin(), path.end()).c_str());
    if (id < 0) return 1;
    const OPC& cloud = findCloud(id)->getOPC();
    for (;;) {
        const int action = upTo(random, 6);
        if (action < 5) startHistoryRecording(std::wstring(folder.begin(), folder.end()).c_str(), action < 2 ? 2 : 1);
        for (int n = 0; n < getNodeCount(id); ++n) {
            std::vector<bool> bits(static_cast<size_t>(upTo(random, 1) * getNodePointCount(id, n)));
            for (size_t i = 0; i < bits.size(); ++i) bits[i] = (random() & 3) == 0;
            cloud.getNode(n)->setSelectionBits(std::move(bits));
        }
        if (action == 0) setLasValueOnSelectedPoints(upTo(random, 15));
        if (action == 1) {
            const unsigned char red[3] = {255, 0, 0};
            const double sphere[4] = {4, 2, 1, 0.01 * upTo(random, 500)};
            activateColourProcess(red, 50, 50);
            selectPointsByVolume(sphere, 4, false, false);
        }
        if (action == 2 || action == 3) deleteSelectedPoints();
        if (action == 4) restorePointCloud(id);
        if (action == 5) undo();
        if (action == 6) redo();
        stopHistoryRecording();
        if (historyTracker.depths().first > 20) clearHistory();
        nimbrelWaitForHistory();
    }
}
