#include "readers/ByteInput.h"
#include "readers/PointReader.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// Plain read() into one buffer rather than a mapping: a mapped file that shrinks kills the process, and a pipe cannot
// be mapped at all. What is left of the window moves to the front of the buffer before more is read behind it, at most
// one line or record of copying for each mebibyte.

static FileError systemError(const char* what) {
    return FileError(std::string(what) + ": " + std::strerror(errno));
}

ByteInput::ByteInput(const std::string& path) : buffer(new char[CAPACITY]) {
    owned = path != "-";
    descriptor = owned ? open(path.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO;
    if (descriptor < 0) throw systemError("cannot be opened");
    struct stat status {};
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return;
    origin = lseek(descriptor, 0, SEEK_CUR);
    seekable = origin >= 0;
    if (seekable && status.st_size > origin) totalSize = static_cast<uint64_t>(status.st_size - origin);
}

ByteInput::~ByteInput() {
    if (owned && descriptor >= 0) close(descriptor);
}

bool ByteInput::fill() {
    if (begin > 0) {
        std::memmove(buffer.get(), buffer.get() + begin, end - begin);
        windowStart += begin;
        end -= begin;
        begin = 0;
    }
    const size_t before = end;
    while (end < CAPACITY && !atEnd) {
        const ssize_t got = ::read(descriptor, buffer.get() + end, CAPACITY - end);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw systemError("cannot be read");
        atEnd = got == 0;
        end += static_cast<size_t>(got);
    }
    return end > before;
}

bool ByteInput::need(size_t size) {
    while (end - begin < size) {
        if (!fill()) return false;
    }
    return true;
}

bool ByteInput::skip(uint64_t size) {
    while (size > end - begin) {
        size -= end - begin;
        begin = end;
        if (!fill()) return false;
    }
    begin += static_cast<size_t>(size);
    return true;
}

bool ByteInput::nextLine(InputLine& line) {
    line.tooLong = false;
    size_t searched = 0;
    while (true) {
        const std::string_view rest = window();
        const void* found =
            searched < rest.size() ? std::memchr(rest.data() + searched, '\n', rest.size() - searched) : nullptr;
        if (found) {
            const auto length = static_cast<size_t>(static_cast<const char*>(found) - rest.data());
            line.text = rest.substr(0, length);
            line.terminated = true;
            consume(length + 1);
            break;
        }
        searched = rest.size();
        if (fill()) continue;
        if (rest.size() == CAPACITY) return passLongLine(line);
        if (rest.empty()) return false;
        line.text = window();
        line.terminated = false;
        consume(line.text.size());
        break;
    }
    if (!line.text.empty() && line.text.back() == '\r') line.text.remove_suffix(1);
    return true;
}

bool ByteInput::passLongLine(InputLine& line) {
    line = InputLine{{}, false, true};
    while (!line.terminated) {
        const std::string_view rest = window();
        const size_t length = rest.find('\n');
        line.terminated = length != std::string_view::npos;
        consume(line.terminated ? length + 1 : rest.size());
        if (!line.terminated && !fill()) break;
    }
    return true;
}

void ByteInput::rewind() {
    if (position() == 0) return;
    if (!seekable) throw FileError("cannot be read twice");
    if (lseek(descriptor, origin, SEEK_SET) < 0) throw systemError("cannot be read twice");
    begin = end = 0;
    windowStart = 0;
    atEnd = false;
}
