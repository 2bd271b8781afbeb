#include "FuzzFile.h"
#include "FuzzReading.h"
#include "readers/TextReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const FuzzFile file(data, size);
    try {
        checkReading(*openText(file.path(), {}));
    } catch (const FileError&) {
        // The one way in which damage may show.
    }
    return 0;
}
