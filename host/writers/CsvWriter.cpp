#include "writers/CsvWriter.h"

#include <charconv>

// Longest shortest form of a double: sign, 17 digits, point and an exponent of three digits.
static constexpr size_t LONGEST_NUMBER = 24;
static constexpr size_t LONGEST_LINE = 3 * (LONGEST_NUMBER + 1) + 5 * 4;

CsvWriter::CsvWriter(const std::string& path) : file(path) {
    file.write("x,y,z,red,green,blue,intensity,class\n");
}

void CsvWriter::write(const PointBatch& batch) {
    for (size_t i = 0; i < batch.size(); ++i) {
        char* const line = file.append(LONGEST_LINE);
        char* const limit = line + LONGEST_LINE;
        char* end = line;
        for (size_t axis = 0; axis < 3; ++axis) {
            end = std::to_chars(end, limit, batch.positions[i * 3 + axis]).ptr;
            *end++ = ',';
        }
        for (size_t channel = 0; channel < 5; ++channel) {
            end = std::to_chars(end, limit, static_cast<unsigned>(batch.attributes[i * 5 + channel])).ptr;
            *end++ = ',';
        }
        end[-1] = '\n';
        file.shrink(static_cast<size_t>(limit - end));
    }
}
