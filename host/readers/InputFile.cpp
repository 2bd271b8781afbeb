#include "readers/InputFile.h"

#include "readers/PointReader.h"

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

[[noreturn]] static void throwSystemError(const std::string& what) {
    const int code = errno;
    if (code == ENOENT) throw FileError("no such file");
    throw FileError(what + ": " + std::generic_category().message(code));
}

// O_NONBLOCK, because opening a FIFO would otherwise wait for a writer before fstat() can refuse it.
InputFile::InputFile(const std::string& path) : descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    if (descriptor < 0) throwSystemError("cannot be opened");
    struct stat status {};
    const bool known = fstat(descriptor, &status) == 0;
    if (known && S_ISREG(status.st_mode) && status.st_size > 0) {
        sizeInBytes = static_cast<uint64_t>(status.st_size);
        return;
    }
    // The destructor does not run for an object that was never finished.
    close(descriptor);
    if (!known) throw FileError("cannot be examined");
    if (S_ISDIR(status.st_mode)) throw FileError("is a directory");
    if (!S_ISREG(status.st_mode)) throw FileError("is not a regular file");
    throw FileError("is empty");
}

InputFile::~InputFile() {
    close(descriptor);
}

size_t InputFile::readAt(uint64_t offset, std::span<std::byte> bytes) const {
    size_t done = 0;
    while (done < bytes.size()) {
        const uint64_t position = offset + done;
        if (position < offset || position > static_cast<uint64_t>(std::numeric_limits<off_t>::max())) break;
        const ssize_t got = pread(descriptor, bytes.data() + done, bytes.size() - done, static_cast<off_t>(position));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throwSystemError("cannot be read");
        if (got == 0) break;
        done += static_cast<size_t>(got);
    }
    return done;
}

void InputFile::readWhole(uint64_t offset, std::span<std::byte> bytes) const {
    if (readAt(offset, bytes) != bytes.size()) throw FileError("the file became shorter while it was read");
}
