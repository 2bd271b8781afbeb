#include "format/memory_mapped_file.h"

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace memory_mapped_file {

namespace {
constexpr uint64_t LARGEST_OFFSET = std::numeric_limits<off_t>::max();

// A host that has closed its standard output would have our diagnostics written into the file that is opened next.
int openBeyondStandardStreams(const char* path, int flags) {
    const int handle = ::open(path, flags | O_CLOEXEC, 0644);
    if (handle < 0 || handle > STDERR_FILENO) return handle;
    const int moved = ::fcntl(handle, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    ::close(handle);
    return moved;
}

// The file systems without space reservation get it by writing zeros.
bool writeZeros(int handle, uint64_t offset, uint64_t size) {
    const std::vector<char> zeros(65536);
    while (size > 0) {
        const size_t part = size < zeros.size() ? static_cast<size_t>(size) : zeros.size();
        const ssize_t written = ::pwrite(handle, zeros.data(), part, static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        offset += static_cast<uint64_t>(written);
        size -= static_cast<uint64_t>(written);
    }
    return true;
}
} // namespace

int mmf_granularity() {
    static const int size = static_cast<int>(::sysconf(_SC_PAGESIZE));
    return size;
}

base_mmf::~base_mmf() {
    close();
}

int base_mmf::close() {
    unmap();
    const int result = fileHandle == -1 ? 0 : ::close(fileHandle);
    fileHandle = -1;
    fileSize = 0;
    return result;
}

void base_mmf::unmap() {
    if (mapped) {
        const uint64_t lead = mapOffset % static_cast<uint64_t>(granularity);
        ::munmap(mapped - lead, mappedSize + lead);
    }
    mapped = nullptr;
    mapOffset = 0;
    mappedSize = 0;
}

uint64_t base_mmf::query_file_size_() const {
    struct stat status {};
    if (fileHandle == -1 || ::fstat(fileHandle, &status) != 0 || status.st_size < 0) return 0;
    return static_cast<uint64_t>(status.st_size);
}

bool base_mmf::read(void* out, uint64_t from, size_t size) const {
    if (fileHandle == -1 || from > LARGEST_OFFSET || size > LARGEST_OFFSET - from) return false;
    auto* target = static_cast<unsigned char*>(out);
    while (size > 0) {
        const ssize_t got = ::pread(fileHandle, target, size, static_cast<off_t>(from));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        target += got;
        from += static_cast<uint64_t>(got);
        size -= static_cast<size_t>(got);
    }
    return true;
}

bool base_mmf::mapPages(uint64_t offsetIn, uint64_t size, int protection) {
    const uint64_t lead = offsetIn % static_cast<uint64_t>(granularity);
    void* pages = ::mmap(nullptr, size + lead, protection, MAP_SHARED, fileHandle, static_cast<off_t>(offsetIn - lead));
    if (pages == MAP_FAILED) return false;
    mapped = static_cast<unsigned char*>(pages) + lead;
    mapOffset = offsetIn;
    mappedSize = size;
    return true;
}

void read_only_mmf::open(const char* path, bool mapAll) {
    close();
    if (!path) return;
    fileHandle = openBeyondStandardStreams(path, O_RDONLY);
    fileSize = query_file_size_();
    if (mapAll) map(0, 0);
}

void read_only_mmf::map(uint64_t offset, uint64_t size) {
    unmap();
    if (fileHandle == -1 || offset >= fileSize) return;
    if (size == 0 || size > fileSize - offset) size = fileSize - offset;
    mapPages(offset, size, PROT_READ);
}

void writable_mmf::open(const char* path, mmf_exists_mode exists, mmf_doesnt_exist_mode absent) {
    close();
    if (!path) return;
    int flags = O_RDWR;
    if (absent == if_doesnt_exist_create) flags |= O_CREAT;
    if (exists == if_exists_fail) {
        if (absent == if_doesnt_exist_fail) return;
        flags |= O_EXCL;
    }
    if (exists == if_exists_truncate) flags |= O_TRUNC;
    fileHandle = openBeyondStandardStreams(path, flags);
    fileSize = query_file_size_();
    if (exists == if_exists_map_all && fileSize > 0) map(0, 0);
}

void writable_mmf::map(uint64_t offset, uint64_t size) {
    unmap();
    if (fileHandle == -1 || offset > fileSize) return;
    if (size == 0) size = fileSize - offset;
    if (size == 0 || offset > LARGEST_OFFSET || size > LARGEST_OFFSET - offset) return;
    if (offset + size > fileSize && !resize(offset + size)) return;
    mapPages(offset, size, PROT_READ | PROT_WRITE);
}

bool writable_mmf::flush() {
    if (!mapped) return true;
    const uint64_t lead = mapOffset % static_cast<uint64_t>(granularity);
    return ::msync(mapped - lead, mappedSize + lead, MS_SYNC) == 0;
}

bool writable_mmf::synchronise() {
    if (fileHandle == -1) return false;
    return ::fdatasync(fileHandle) == 0 || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP;
}

bool writable_mmf::resize(uint64_t size) {
    if (fileHandle == -1 || size > LARGEST_OFFSET || ::ftruncate(fileHandle, static_cast<off_t>(size)) != 0)
        return false;
    fileSize = size;
    return true;
}

bool writable_mmf::reserve(uint64_t offset, uint64_t size) {
    if (fileHandle == -1 || offset > LARGEST_OFFSET || size > LARGEST_OFFSET - offset) return false;
    if (size == 0) return true;
    int result = 0;
    do {
        result = ::fallocate(fileHandle, 0, static_cast<off_t>(offset), static_cast<off_t>(size));
    } while (result != 0 && errno == EINTR);
    if (result == 0) return true;
    if (errno != EOPNOTSUPP && errno != ENOSYS) return false;
    return writeZeros(fileHandle, offset, size);
}

bool writable_mmf::write(const void* in, uint64_t to, size_t size) {
    if (fileHandle == -1 || to > LARGEST_OFFSET || size > LARGEST_OFFSET - to) return false;
    const auto* source = static_cast<const unsigned char*>(in);
    while (size > 0) {
        const ssize_t written = ::pwrite(fileHandle, source, size, static_cast<off_t>(to));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        source += written;
        to += static_cast<uint64_t>(written);
        size -= static_cast<size_t>(written);
    }
    return true;
}

} // namespace memory_mapped_file
