#include "writers/PointWriter.h"
#include "writers/CsvWriter.h"
#include "writers/LasWriter.h"
#include "writers/PlyWriter.h"

static std::string lowerExtension(const std::string& path) {
    const size_t dot = path.find_last_of("./");
    if (dot == std::string::npos || path[dot] == '/') return {};
    std::string extension = path.substr(dot);
    for (char& c : extension) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return extension;
}

std::unique_ptr<PointWriter> createPoints(const std::string& path, const std::array<double, 6>& bounds) {
    const std::string extension = lowerExtension(path);
    if (extension == ".las") return std::make_unique<LasWriter>(path, bounds);
    if (extension == ".ply") return std::make_unique<PlyWriter>(path);
    if (extension == ".csv") return std::make_unique<CsvWriter>(path);
    throw FileError("points are written to .las, .ply and .csv only");
}
