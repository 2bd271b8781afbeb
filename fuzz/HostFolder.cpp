#include "HostFolder.h"

#include "SeedClouds.h"
#include "nimbrel/NimbrelEngine.h"

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <thread>

namespace {

constexpr int VOXEL_TYPE = 2;
constexpr const char* OUTPUTS[] = {"out0", "out1", "out2"};

// What no cloud is behind.
std::wstring oddPath(const TempDir& dir, uint8_t choice) {
    const std::wstring odd[] = {L"",         dir.widePath(""), dir.widePath("missing/out"), std::wstring(5000, L'x'),
                                L"\x110000", L"\xD800/x",      dir.widePath("full"),        dir.widePath("out0")};
    return odd[choice % std::size(odd)];
}

} // namespace

HostFolder::HostFolder() {
    for (const auto& [name, bytes] : seedClouds()) add(name, bytes);
    build("built17", 0);
    build("built18", 1);
    build("model", VOXEL_TYPE);
    for (File& file : files) file.content = restored(file.name);

    Bytes damaged = files.front().bytes;
    damaged.resize(damaged.size() - 10); // the last node's points lie outside the file
    add("short", damaged);
    damaged = files.front().bytes;
    damaged[124] = 0xFF;
    add("damaged", damaged);
    add("empty", {});
    // A full disk, by a name that may well be replaced.
    std::filesystem::create_symlink("/dev/full", dir.path("full"));
}

void HostFolder::add(const std::string& name, const Bytes& bytes) {
    File& file = files.emplace_back();
    file.name = name;
    file.bytes = bytes;
    dir.write(name, bytes);
}

void HostFolder::build(const std::string& name, int type) {
    constexpr int POINTS = 20000; // more than a node takes
    const double box[6] = {0, 0, 0, 8, 4, 2};
    std::mt19937 random(1);
    std::vector<double> xyz(3 * POINTS);
    for (size_t i = 0; i < xyz.size(); ++i) xyz[i] = box[3 + i % 3] * static_cast<double>(random() % 1000) / 1000.0;
    const std::vector<unsigned char> attributes(5 * POINTS, 100);
    createOPC(dir.widePath(name).c_str(), box, POINTS, "key", type, 0.25F);
    addPoints(xyz.data(), attributes.data(), POINTS);
    indexOPC(0, 0, 0, 1);
    while (getOPCProgress(2) != 0) std::this_thread::yield();
    add(name, dir.read(name));
}

void HostFolder::refresh() {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path(""))) {
        std::filesystem::remove_all(entry.path(), ignored);
    }
    for (File& file : files) {
        dir.write(file.name, file.bytes);
        file.isOpened = false;
        file.isSpoilt = false;
    }
}

HostFolder::File& HostFolder::at(size_t place) {
    return *std::next(files.begin(), static_cast<std::ptrdiff_t>(place));
}

std::wstring HostFolder::input(uint8_t choice) {
    const size_t place = choice % (files.size() + std::size(OUTPUTS) + 1);
    if (place < files.size()) {
        at(place).isOpened = true;
        return dir.widePath((choice < 224 ? "" : "./") + at(place).name); // under a second name now and then
    }
    const size_t output = place - files.size();
    return output < std::size(OUTPUTS) ? dir.widePath(OUTPUTS[output]) : oddPath(dir, choice / 16);
}

std::wstring HostFolder::output(uint8_t choice) {
    if (choice < 224) return dir.widePath(OUTPUTS[choice % std::size(OUTPUTS)]);
    if (choice < 240) return oddPath(dir, choice);
    File& file = at(choice % files.size());
    file.isSpoilt = true;
    return dir.widePath(file.name);
}

void HostFolder::spoilAll() {
    for (File& file : files) file.isSpoilt = true;
}

HostFolder::Content HostFolder::restored(const std::string& name) const {
    Content content;
    const int id = loadPointCloudFile(dir.widePath(name).c_str());
    restorePointCloud(id);
    for (int node = 0; node < getNodeCount(id); ++node) {
        const auto count = static_cast<size_t>(getNodePointCount(id, node));
        std::vector<double> xyz(3 * count);
        std::vector<char> colour(5 * count);
        getNodePoints(id, node, xyz.data(), colour.data());
        content.points += static_cast<int64_t>(count);
        for (const double* p = xyz.data(); p != xyz.data() + xyz.size(); p += 3) {
            uint64_t hash = 0;
            for (int axis = 0; axis < 3; ++axis) hash = (hash ^ std::bit_cast<uint64_t>(p[axis])) * 0x9E3779B97F4A7C15U;
            content.sum += hash ^ hash >> 32;
        }
    }
    closePointCloud(id);
    return content;
}

void HostFolder::check() const {
    for (const File& file : files) {
        if (!file.isOpened || file.isSpoilt || file.content.points == 0) continue;
        const Content now = restored(file.name);
        if (now == file.content) continue;
        std::fprintf(stderr, "%s: %lld points of %lld, or other places\n", file.name.c_str(),
                     static_cast<long long>(now.points), static_cast<long long>(file.content.points));
        std::abort();
    }
}
