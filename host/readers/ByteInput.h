#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

// One line of a ByteInput, without its end.
struct InputLine {
    std::string_view text;   // valid until the input is used again
    bool terminated = false; // a line feed followed it; false only for the last line of an input
    bool tooLong = false;    // it did not fit into the window; `text` is empty and the line has been passed over
};

// The bytes of a file or of standard input from front to back, seen through a window of at most CAPACITY bytes.
//
// The window is all the memory that an input takes, whatever its lines or records look like. Failures of the system
// throw FileError; the end of the input does not, the reader above knows whether it comes too early.
class ByteInput {
public:
    static constexpr size_t CAPACITY = size_t{1} << 20;

    // Opens a file, or standard input for "-". Throws FileError.
    explicit ByteInput(const std::string& path);
    ~ByteInput();
    ByteInput(const ByteInput&) = delete;
    ByteInput& operator=(const ByteInput&) = delete;

    // The bytes that are read but not consumed yet.
    [[nodiscard]] std::string_view window() const { return {buffer.get() + begin, end - begin}; }

    // Reads on until the window is full or the input ends. False when that added nothing.
    bool fill();

    // Makes the window at least `size` bytes long, at most CAPACITY; false when the input ends before.
    bool need(size_t size);

    // Passes over `size` bytes of the window.
    void consume(size_t size) { begin += size; }

    // Passes over `size` bytes, of the window and behind it; false when the input ends before.
    bool skip(uint64_t size);

    // Takes the next line, ended by LF or CR LF; false at the end of the input.
    bool nextLine(InputLine& line);

    // Goes back to where the input began. Throws FileError when it cannot: a pipe of which something was consumed.
    void rewind();
    [[nodiscard]] bool isSeekable() const { return seekable; }

    [[nodiscard]] uint64_t position() const { return windowStart + begin; } // bytes consumed
    [[nodiscard]] uint64_t size() const { return totalSize; }               // of the file, 0 when not known

private:
    bool passLongLine(InputLine& line);

    int descriptor = -1;
    bool owned = false;    // the destructor closes the descriptor
    bool seekable = false; // a regular file
    int64_t origin = 0;    // offset in the file where the input began
    uint64_t totalSize = 0;
    std::unique_ptr<char[]> buffer;
    size_t begin = 0;         // of the window, in the buffer
    size_t end = 0;           // of the window, in the buffer
    uint64_t windowStart = 0; // offset in the input of the buffer's first byte
    bool atEnd = false;       // the system has nothing more
};
