#include "cloud/CloudCopy.h"

#include "cloud/CloudPlace.h"
#include "readers/InputFile.h"
#include "readers/PointReader.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/Progress.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <unistd.h>
#include <vector>

CloudCopy::CloudCopy(const std::string& from, const std::string& outputIn, Console& console)
    : output(outputIn), partPath(outputIn + ".part") {
    dropJournal(partPath);
    try {
        copy(from, console);
    } catch (...) {
        unlink(partPath.c_str());
        throw;
    }
}

CloudCopy::~CloudCopy() {
    if (!finished) unlink(partPath.c_str());
}

void CloudCopy::copy(const std::string& from, Console& console) const {
    constexpr size_t STEP = size_t{4} << 20;
    try {
        const InputFile input(from);
        std::ofstream copied(partPath, std::ios::binary | std::ios::trunc);
        Progress progress(console, "Copying", 0);
        std::vector<std::byte> bytes(STEP);
        for (uint64_t at = 0; copied && at < input.size(); at += bytes.size()) {
            checkInterrupt();
            bytes.resize(std::min<uint64_t>(STEP, input.size() - at));
            input.readWhole(at, bytes);
            copied.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
            progress.update(0, static_cast<double>(at) / static_cast<double>(input.size()));
        }
        copied.close();
        if (!copied) throw CommandFailure(output, std::string("cannot be written: ") + std::strerror(errno));
    } catch (const FileError& error) {
        throw CommandFailure(from, error.what());
    }
}

void CloudCopy::finish() {
    moveIntoPlace(partPath, output);
    finished = true;
}
