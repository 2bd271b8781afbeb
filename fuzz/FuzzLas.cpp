#include "FuzzFile.h"
#include "FuzzReading.h"
#include "readers/LasReader.h"

// More points than this are allowed in a few bytes of a code, and take longer than a run may.
static constexpr uint64_t MOST_POINTS = 100000;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const FuzzFile file(data, size);
    try {
        const auto reader = openLas(file.path(), {.skipWithheld = size % 2 == 0, .columns = {}});
        if (reader->announcedCount() <= MOST_POINTS) checkReading(*reader);
    } catch (const FileError&) {
        // The one way in which damage may show.
    }
    return 0;
}
