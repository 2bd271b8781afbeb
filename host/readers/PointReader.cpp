#include "readers/PointReader.h"

#include "readers/ByteInput.h"
#include "readers/InputFile.h"
#include "readers/LasReader.h"
#include "readers/PlyReader.h"
#include "readers/TextReader.h"

#include <filesystem>
#include <system_error>

// Whether `path` gives its bytes once and in order, such as a pipe: these cannot be looked at before they are read.
static bool isStream(const std::string& path) {
    if (path == "-") return true;
    std::error_code ignored; // what is wrong with the path is told when it is opened
    const std::filesystem::file_type type = std::filesystem::status(path, ignored).type();
    return type == std::filesystem::file_type::fifo || type == std::filesystem::file_type::character;
}

// The first bytes of the file at `path`.
static std::string readStart(const std::string& path) {
    const InputFile file(path);
    std::string start(4, '\0');
    start.resize(file.readAt(0, std::as_writable_bytes(std::span(start))));
    return start;
}

// LAS and LAZ need to go back and forth in their file.
static std::unique_ptr<PointReader> openStream(const std::string& path, const ReadOptions& options) {
    auto bytes = std::make_unique<ByteInput>(path);
    bytes->need(4);
    if (bytes->window().starts_with("LASF")) throw FileError("LAS and LAZ cannot be read from a pipe");
    if (bytes->window().starts_with("ply")) return openPly(std::move(bytes));
    return openText(std::move(bytes), options);
}

std::unique_ptr<PointReader> openPoints(const std::string& path, const ReadOptions& options) {
    if (isStream(path)) return openStream(path, options);
    const std::string start = readStart(path);
    if (start == "LASF") return openLas(path, options);
    if (start.starts_with("ply")) return openPly(path, options);
    return openText(path, options);
}
