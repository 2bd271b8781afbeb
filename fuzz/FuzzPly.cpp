#include "FuzzFile.h"
#include "FuzzReading.h"
#include "readers/PlyReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const FuzzFile file(data, size);
    try {
        checkReading(*openPly(file.path(), {}));
    } catch (const FileError&) {
        // The one way in which damage may show.
    }
    return 0;
}
