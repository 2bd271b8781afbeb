#include "writers/PlyWriter.h"

#include <bit>
#include <cstring>

// The header holds the number of points, which is known at the end only. A comment behind it takes up what a longer
// number needs, so that the header always has the same length and the number stays free of leading zeros.

static_assert(std::endian::native == std::endian::little, "records are copied as they lie in memory");

static constexpr size_t RECORD_SIZE = 3 * sizeof(double) + 5;
static constexpr size_t LONGEST_COUNT = 20;

static std::string headerFor(uint64_t count) {
    const std::string number = std::to_string(count);
    return "ply\nformat binary_little_endian 1.0\nelement vertex " + number + "\ncomment " +
           std::string(LONGEST_COUNT - number.size(), '.') +
           "\nproperty double x\nproperty double y\nproperty double z\n"
           "property uchar red\nproperty uchar green\nproperty uchar blue\n"
           "property uchar intensity\nproperty uchar classification\nend_header\n";
}

PlyWriter::PlyWriter(const std::string& path) : file(path) {
    file.write(headerFor(0));
}

void PlyWriter::write(const PointBatch& batch) {
    for (size_t i = 0; i < batch.size(); ++i) {
        char* const record = file.append(RECORD_SIZE);
        std::memcpy(record, &batch.positions[i * 3], 3 * sizeof(double));
        std::memcpy(record + 3 * sizeof(double), &batch.attributes[i * 5], 5);
    }
    count += batch.size();
}

void PlyWriter::finish() {
    file.patch(0, headerFor(count));
    file.finish();
}
