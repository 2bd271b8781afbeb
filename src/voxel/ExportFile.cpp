#include "voxel/ExportFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <unistd.h>

ExportFile::ExportFile(const std::string& path)
    : descriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)), buffer(BUFFER_SIZE) {
    if (descriptor < 0) fail();
}

void ExportFile::fail() {
    problem = std::strerror(errno);
}

char* ExportFile::room(size_t size) {
    if (buffer.size() - used < size) flush();
    return buffer.data() + used;
}

void ExportFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::string_view part = bytes.substr(0, LARGEST_ROOM);
        filled(std::copy(part.begin(), part.end(), room(part.size())));
        bytes.remove_prefix(part.size());
    }
}

void ExportFile::writeZeros(uint64_t count) {
    if (count > BUFFER_SIZE && makeHole(count)) return;
    while (count > 0 && !failed()) {
        const size_t part = static_cast<size_t>(std::min<uint64_t>(count, LARGEST_ROOM));
        char* const begin = room(part);
        std::fill_n(begin, part, '\0');
        filled(begin + part);
        count -= part;
    }
}

// False where zeros have to be written one by one, as to a pipe.
bool ExportFile::makeHole(uint64_t count) {
    flush();
    if (failed()) return true;
    const off_t position = ::lseek(descriptor, 0, SEEK_CUR);
    if (position < 0) return false;
    if (count > static_cast<uint64_t>(std::numeric_limits<off_t>::max() - position)) {
        errno = EFBIG;
        fail();
        return true;
    }
    const off_t end = position + static_cast<off_t>(count);
    if (::ftruncate(descriptor, end) != 0) {
        if (errno == EINVAL) return false; // no regular file
        fail();
        return true;
    }
    if (::lseek(descriptor, end, SEEK_SET) != end) fail();
    return true;
}

void ExportFile::flush() {
    size_t done = 0;
    while (done < used && !failed()) {
        const ssize_t written = ::write(descriptor, buffer.data() + done, used - done);
        if (written >= 0) {
            done += static_cast<size_t>(written);
        } else if (errno != EINTR) {
            fail();
        }
    }
    used = 0;
}

void ExportFile::close() {
    if (descriptor < 0) return;
    flush();
    // Some file systems report a full disk no sooner than here.
    if (::close(descriptor) != 0 && !failed()) fail();
    descriptor = -1;
}
