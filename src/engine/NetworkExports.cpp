// The export that opens a cloud of a point server.

#include "engine/CloudTable.h"
#include "engine/EngineState.h"
#include "ground/Log.h"
#include "nimbrel/NimbrelEngine.h"
#include "remote/FileNetwork.h"

#include <exception>

int loadPointCloudNetwork(const wchar_t* url) {
    return guarded(-1, [url] {
        const std::wstring name = url ? url : L"";
        setLastError("");
        if (!init) {
            setLastError("the engine is not armed: no key was accepted");
            return -1;
        }
        const auto file = std::make_shared<FileNetwork>();
        try {
            file->openFile(name, false, 0);
        } catch (const std::exception& failure) {
            setLastError(failure.what());
            return -1;
        }
        return enterCloud(file, name, false);
    });
}
