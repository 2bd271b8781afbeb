#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

// The bytes of one run as a file in memory, since readers open paths.
class FuzzFile {
public:
    FuzzFile(const uint8_t* data, size_t size) : descriptor(memfd_create("fuzz", MFD_CLOEXEC)) {
        if (descriptor < 0 || write(descriptor, data, size) != static_cast<ssize_t>(size)) std::abort();
        lseek(descriptor, 0, SEEK_SET);
    }
    ~FuzzFile() { close(descriptor); }
    FuzzFile(const FuzzFile&) = delete;
    FuzzFile& operator=(const FuzzFile&) = delete;

    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

private:
    int descriptor;
};
