#include "render/PPMImage.h"

#include "ground/Log.h"

#include <cstdio>
#include <memory>

void writePPMImage(const std::string& path, int width, int height, std::span<const unsigned char> pixels) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "w"),
                                                     [](FILE* f) { return f ? std::fclose(f) : 0; });
    if (!file) {
        logText("Couldn't open file screenshot file\n");
        return;
    }
    std::fprintf(file.get(), "P3\n%d %d\n255\n", width, height);
    const size_t rowSize = static_cast<size_t>(width) * 4;
    std::string line;
    for (size_t row = static_cast<size_t>(height); row-- > 0;) {
        line.clear();
        for (size_t i = row * rowSize; i < (row + 1) * rowSize; i += 4) {
            for (size_t channel = 0; channel < 3; ++channel) line += std::to_string(pixels[i + channel]) + ' ';
        }
        line += '\n';
        std::fwrite(line.data(), 1, line.size(), file.get());
    }
}
