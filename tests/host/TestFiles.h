#pragma once

#include "readers/PointReader.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

// A folder of the test's own, removed with everything in it.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / ("nimbrel" + std::string(6, 'X'))).string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
        path = pattern;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] std::string file(const std::string& name) const { return (path / name).string(); }

    // Writes a file and returns its path.
    [[nodiscard]] std::string write(const std::string& name, std::string_view bytes) const {
        std::ofstream(file(name), std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return file(name);
    }

    std::filesystem::path path;
};

inline std::string bytesOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

inline PointBatch readAll(PointReader& reader, size_t step = 1000) {
    PointBatch all, batch;
    while (reader.read(batch, step) > 0) {
        all.positions.insert(all.positions.end(), batch.positions.begin(), batch.positions.end());
        all.attributes.insert(all.attributes.end(), batch.attributes.begin(), batch.attributes.end());
    }
    return all;
}

// The text of the FileError that `action` throws; empty when it throws none.
template <class Action>
std::string errorOf(Action action) {
    try {
        action();
    } catch (const FileError& error) {
        return error.what();
    }
    return {};
}

// The path of a real cloud; empty where the folder of clouds is not there.
inline std::string realCloud(const std::string& name) {
    const std::string path = NIMBREL_SHARED_DATA "/" + name;
    return std::filesystem::exists(path) ? path : std::string();
}
