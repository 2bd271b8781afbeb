#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// A point file that is served, as its header describes it.
struct CatalogueEntry {
    std::string file; // where it is, free of links
    int version = 0;
    int nodes = 0;
    int64_t points = 0;
    int64_t reserved = 0;        // of a voxel model: bytes of header and tree
    std::array<double, 6> box{}; // smallest x, y, z, then largest
    uint64_t size = 0;           // in bytes
};

// The point files at and below some paths, by the names under which they are served.
//
// A request is answered by looking its name up here and never by putting a path together: no name leads to a file that
// the scan did not find. The scan takes regular files with the header of a point file, follows no link to a folder, and
// leaves out files that a link places outside the paths. Files that are still being written (.part) or whose names
// begin with a dot are left out too. Any thread.
class Catalogue {
public:
    using Entries = std::map<std::string, CatalogueEntry>;

    // Throws CommandFailure when a path is not there, or when two would serve a file under the same name.
    explicit Catalogue(const std::vector<std::string>& paths);

    // All files as they are now, by name: a slash, then the path below the folder that was given.
    [[nodiscard]] Entries list();

    // A file by its name. One that is not known is looked for on the disk, but not at every call.
    [[nodiscard]] std::optional<CatalogueEntry> find(const std::string& name);

private:
    using Clock = std::chrono::steady_clock;

    void scan();
    void scanRoot(const std::filesystem::path& root, Entries& found) const;
    void addFile(const std::filesystem::path& path, const std::string& name, Entries& found) const;
    [[nodiscard]] bool isInside(const std::filesystem::path& file) const;

    std::vector<std::filesystem::path> roots; // free of links
    std::mutex mutex;                         // guards everything below
    Entries entries;
    Clock::time_point nextScan;
};
