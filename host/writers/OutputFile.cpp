#include "writers/OutputFile.h"
#include "readers/PointReader.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

static constexpr size_t BUFFER_SIZE = size_t{1} << 20;

static FileError systemError(const char* what) {
    return FileError(std::string(what) + ": " + std::strerror(errno));
}

OutputFile::OutputFile(const std::string& target) : path(target), partPath(target + ".part"), buffer(BUFFER_SIZE) {
    descriptor = open(partPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (descriptor < 0) throw systemError("cannot be created");
}

OutputFile::~OutputFile() {
    if (descriptor < 0) return;
    close(descriptor);
    unlink(partPath.c_str());
}

char* OutputFile::append(size_t size) {
    if (buffer.size() - used < size) flush();
    if (buffer.size() < size) buffer.resize(size);
    char* const room = buffer.data() + used;
    used += size;
    return room;
}

void OutputFile::write(std::string_view bytes) {
    std::copy(bytes.begin(), bytes.end(), append(bytes.size()));
}

void OutputFile::flush() {
    size_t done = 0;
    while (done < used) {
        const ssize_t written = ::write(descriptor, buffer.data() + done, used - done);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) throw systemError("cannot be written");
        done += static_cast<size_t>(written);
    }
    used = 0;
}

void OutputFile::patch(uint64_t offset, std::string_view bytes) {
    flush();
    while (!bytes.empty()) {
        const ssize_t written = pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) throw systemError("cannot be written");
        bytes.remove_prefix(static_cast<size_t>(written));
        offset += static_cast<uint64_t>(written);
    }
}

void OutputFile::finish() {
    flush();
    // Some file systems report a full disk no sooner than here.
    const int closed = close(descriptor);
    descriptor = -1;
    if (closed != 0 || std::rename(partPath.c_str(), path.c_str()) != 0) {
        const FileError error = systemError("cannot be written");
        unlink(partPath.c_str());
        throw error;
    }
}
