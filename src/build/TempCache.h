#pragma once

#include "format/memory_mapped_file.h"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class OPCCreator;

// Keeps points in a temporary file until their count and box are known, which a build needs before its first point.
//
// The file has no header; a point is a float record relative to the first point. The box is kept in a frame of its
// own: x, then -z, then y. Belongs to one thread.
class TempCache {
public:
    static constexpr int TRANSFER_SIZE = 1000000; // points handed to the build at once

    TempCache();
    ~TempCache();

    // Makes the file, dropping an earlier one. False when it can't be made.
    bool createTempCache(const std::wstring& path);
    // Appends a batch. False without a file, after a rewind, or when the file could not take all of it.
    bool addCachePoints(const double* positions, const unsigned char* attributes, int count);
    [[nodiscard]] int64_t getCacheCount() const { return count; }
    // Minimum, then maximum, in the cache's frame.
    void getCacheBoundingBox(double* out) const;
    // Goes to the first point; from here on the file is read.
    void rewindCache();
    // Adds to the creator as many points as batch `batch` had, from where the last transfer ended, moved by b - a.
    void transferToOPC(OPCCreator& creator, int batch, const double* a, const double* b);
    // Closes and removes the file; counts and box stay readable.
    bool closeTempCache();

private:
    void includeInBounds(const double* position);
    [[nodiscard]] bool writeOut();

    std::array<double, 3> origin{}; // the first point
    std::array<double, 3> boundsMin, boundsMax;
    int64_t count = 0;
    memory_mapped_file::writable_mmf file; // closed when there is no cache
    std::string path;
    bool isReading = false;
    uint64_t position = 0;             // where the file is written or read next
    std::vector<unsigned char> buffer; // records on their way
    std::vector<int> batchSizes;       // count of each addCachePoints call
};
