#include "serve/Catalogue.h"
#include "support/Failure.h"
#include "support/WidePath.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <system_error>

namespace fs = std::filesystem;

// The header's fields that decide what is a point file. docs/format.md has the layout.
static constexpr size_t HEADER_SIZE = 124;
static constexpr size_t TAG_OFFSET = 0;
static constexpr size_t VERSION_OFFSET = 4;
static constexpr size_t NODES_OFFSET = 8;
static constexpr size_t POINTS_OFFSET = 12;
static constexpr size_t BOX_OFFSET = 20;
static constexpr size_t RESERVED_OFFSET = 84;

template <typename T>
static T valueAt(const std::array<char, HEADER_SIZE>& header, size_t offset) {
    T value;
    std::memcpy(&value, header.data() + offset, sizeof(T));
    return value;
}

static bool isBox(const std::array<double, 6>& box) {
    for (size_t axis = 0; axis < 3; ++axis) {
        if (!std::isfinite(box[axis]) || !std::isfinite(box[axis + 3]) || !(box[axis] < box[axis + 3])) return false;
    }
    return true;
}

// What the file's header tells; nothing when it is no point file.
static std::optional<CatalogueEntry> readEntry(const fs::path& path) {
    std::error_code error;
    CatalogueEntry entry;
    entry.size = fs::file_size(path, error);
    if (error || entry.size < HEADER_SIZE) return std::nullopt;
    std::array<char, HEADER_SIZE> header{};
    if (!std::ifstream(path, std::ios::binary).read(header.data(), HEADER_SIZE)) return std::nullopt;
    entry.file = path.string();
    entry.version = valueAt<int32_t>(header, VERSION_OFFSET);
    entry.nodes = valueAt<int32_t>(header, NODES_OFFSET);
    entry.points = valueAt<int64_t>(header, POINTS_OFFSET);
    entry.reserved = int64_t{valueAt<uint32_t>(header, RESERVED_OFFSET)};
    entry.box = valueAt<std::array<double, 6>>(header, BOX_OFFSET);
    const bool isKnown = entry.version == 17 || entry.version == 18 || entry.version == 90;
    const bool isSound = valueAt<int32_t>(header, TAG_OFFSET) == 1 && entry.nodes > 0 && entry.points > 0;
    return isKnown && isSound && isBox(entry.box) ? std::optional(entry) : std::nullopt;
}

// The name under which a path below a folder is served.
static std::string nameOf(const fs::path& path) {
    std::string name(1, '/');
    return name += path.generic_string();
}

Catalogue::Catalogue(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        std::error_code error;
        fs::path root = fs::canonical(path, error);
        if (error) throw CommandFailure(path, error.message());
        if (std::find(roots.begin(), roots.end(), root) == roots.end()) roots.push_back(std::move(root));
    }
    Entries all;
    for (const fs::path& root : roots) {
        Entries found;
        scanRoot(root, found);
        if (found.empty() && fs::is_regular_file(root)) {
            throw CommandFailure(root.string(), "cannot be served: it is no point file, or may not be read");
        }
        for (auto& [name, entry] : found) {
            const auto [known, isNew] = all.emplace(name, entry);
            if (!isNew && known->second.file != entry.file) {
                throw CommandFailure(entry.file, "would be served as " + name + " like " + known->second.file);
            }
        }
    }
    entries = std::move(all);
    nextScan = Clock::now() + std::chrono::seconds(1);
}

bool Catalogue::isInside(const fs::path& file) const {
    return std::any_of(roots.begin(), roots.end(), [&file](const fs::path& root) {
        return std::mismatch(root.begin(), root.end(), file.begin(), file.end()).first == root.end();
    });
}

void Catalogue::addFile(const fs::path& path, const std::string& name, Entries& found) const {
    const std::string fileName = path.filename().string();
    if (fileName.starts_with('.') || fileName.ends_with(".part") || !decodeUtf8(path.string())) return;
    std::error_code error;
    const fs::path file = fs::canonical(path, error);
    if (error || !isInside(file) || !fs::is_regular_file(file, error)) return;
    if (const auto entry = readEntry(file)) found.emplace(name, *entry);
}

void Catalogue::scanRoot(const fs::path& root, Entries& found) const {
    std::error_code error;
    if (!fs::is_directory(root, error)) return addFile(root, nameOf(root.filename()), found);
    fs::recursive_directory_iterator next(root, fs::directory_options::skip_permission_denied, error);
    for (; !error && next != fs::recursive_directory_iterator(); next.increment(error)) {
        std::error_code ignored;
        if (next->is_regular_file(ignored)) {
            addFile(next->path(), nameOf(next->path().lexically_relative(root)), found);
        }
    }
}

// The caller holds the mutex. Files that are found first keep their names.
void Catalogue::scan() {
    const auto start = Clock::now();
    Entries found;
    for (const fs::path& root : roots) scanRoot(root, found);
    entries = std::move(found);
    // So that requests for what is not there keep the disk busy for a small part of the time only.
    constexpr int SHARE = 50;
    nextScan = Clock::now() + std::max<Clock::duration>(std::chrono::seconds(1), SHARE * (Clock::now() - start));
}

Catalogue::Entries Catalogue::list() {
    std::lock_guard lock(mutex);
    if (Clock::now() >= nextScan) scan();
    return entries;
}

std::optional<CatalogueEntry> Catalogue::find(const std::string& name) {
    std::lock_guard lock(mutex);
    auto entry = entries.find(name);
    if (entry == entries.end() && Clock::now() >= nextScan) {
        scan();
        entry = entries.find(name);
    }
    return entry == entries.end() ? std::nullopt : std::optional(entry->second);
}
