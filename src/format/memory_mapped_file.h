#pragma once

#include <cstddef>
#include <cstdint>

// A small layer over the files of the platform: mapping, and positional reads and writes on the same handle. Every
// operation fails quietly, by its result or by mapping nothing.
//
// Which of the two to use: a map suits a file that is ours alone. A file that others may cut short is read and written
// by position, because touching a page of a map that lost its file kills the process.
namespace memory_mapped_file {

// The granularity of mapping offsets: the system's page size.
int mmf_granularity();

// What opening does with a file that exists, and with one that does not.
enum mmf_exists_mode {
    if_exists_fail = 0,
    if_exists_just_open = 1,
    if_exists_map_all = 2, // maps the file unless it is empty
    if_exists_truncate = 3
};
enum mmf_doesnt_exist_mode { if_doesnt_exist_fail = 0, if_doesnt_exist_create = 1 };

class base_mmf {
public:
    base_mmf() = default;
    base_mmf(const base_mmf&) = delete;
    base_mmf& operator=(const base_mmf&) = delete;

    // Unmaps and closes. The result is that of the system's close, 0 for success.
    int close();
    void unmap();

    [[nodiscard]] bool is_open() const { return fileHandle != -1; }
    [[nodiscard]] uint64_t offset() const { return mapOffset; } // file offset of data()
    [[nodiscard]] uint64_t mapped_size() const { return mappedSize; }
    [[nodiscard]] uint64_t file_size() const { return fileSize; } // as of opening or of the last growth
    [[nodiscard]] int file_handle() const { return fileHandle; }

    // The size of the open file now, or 0 if it can't be asked.
    [[nodiscard]] uint64_t query_file_size_() const;

    // Copies `size` bytes at `from` to `out`; false unless all of them came.
    bool read(void* out, uint64_t from, size_t size) const;

protected:
    ~base_mmf();
    bool mapPages(uint64_t offsetIn, uint64_t size, int protection);

    unsigned char* mapped = nullptr; // the byte at mapOffset; null when unmapped
    uint64_t mapOffset = 0;
    uint64_t mappedSize = 0;
    uint64_t fileSize = 0;
    int granularity = mmf_granularity();
    int fileHandle = -1;
};

class read_only_mmf : public base_mmf {
public:
    // Closes anything open, then opens for reading; with `mapAll`, maps everything. A null path does nothing.
    void open(const char* path, bool mapAll);
    // A size of 0, or a range past the end, means up to the end. An offset at or past the end maps nothing.
    void map(uint64_t offset, uint64_t size);
    [[nodiscard]] const unsigned char* data() const { return mapped; }
};

class writable_mmf : public base_mmf {
public:
    // Closes anything open first. A created file has the permission bits 0644.
    void open(const char* path, mmf_exists_mode exists, mmf_doesnt_exist_mode absent);
    // A size of 0 means up to the end, an offset past the end does nothing. A range past the end extends the file.
    void map(uint64_t offset, uint64_t size);
    // Writes the mapped range back and waits. True if nothing is mapped or the write succeeded.
    bool flush();
    // Waits until what was written is on the disk; false when the disk refused some of it. A file system that knows no
    // such waiting counts as one that needs none.
    [[nodiscard]] bool synchronise();
    // Sets the file's length; the part beyond the old end is a hole that reads as zeros.
    bool resize(uint64_t size);
    // Has the file system set room aside for a range of the file, so that touching a map of it cannot fail for want of
    // space. False when there is none.
    bool reserve(uint64_t offset, uint64_t size);
    // Writes `size` bytes at `to`, past the end too; false unless all of them went.
    bool write(const void* in, uint64_t to, size_t size);
    [[nodiscard]] unsigned char* data() const { return mapped; }
};

} // namespace memory_mapped_file
