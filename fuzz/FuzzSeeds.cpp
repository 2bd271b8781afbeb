// Writes small sound point files of every version into the folder named on the command line.

#include "SeedClouds.h"

#include <cstdio>
#include <fstream>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzzSeeds FOLDER\n");
        return 1;
    }
    for (const auto& [name, bytes] : seedClouds()) {
        std::ofstream out(std::string(argv[1]) + "/" + name, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!out) return 1;
    }
    return 0;
}
