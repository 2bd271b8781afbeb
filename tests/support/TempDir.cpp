#include "support/TempDir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

TempDir::TempDir()
    : directory((std::filesystem::temp_directory_path() / ("nimbrelTests-" + std::string(6, 'X'))).string()) {
    if (!::mkdtemp(directory.data())) throw std::runtime_error("no temporary directory");
}

void TempDir::remove() const {
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

std::wstring TempDir::widePath(const std::string& name) const {
    const std::string narrow = path(name);
    return {narrow.begin(), narrow.end()};
}

std::string TempDir::write(const std::string& name, const std::vector<unsigned char>& bytes) const {
    std::ofstream out(path(name), std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) throw std::runtime_error("can't write " + name);
    return path(name);
}

std::wstring TempDir::writeWide(const std::string& name, const std::vector<unsigned char>& bytes) const {
    write(name, bytes);
    return widePath(name);
}

std::vector<unsigned char> TempDir::read(const std::string& name) const {
    std::ifstream in(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}
