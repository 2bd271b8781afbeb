#pragma once

#include "support/PointFileMaker.h"
#include "support/TempDir.h"

#include <atomic>
#include <cstdint>
#include <list>
#include <string>

// The files of a hostile host: clouds of every kind, sound, damaged and missing, and places to write to. Knows which
// points the sound ones hold, so that it can tell when one got lost. Any thread, but for refresh and check.
class HostFolder {
public:
    // Builds the larger clouds, with an engine that is armed.
    HostFolder();

    // Puts all files back as they were, and removes those that were added.
    void refresh();

    // Any file, to be opened.
    std::wstring input(uint8_t choice);
    // A place to write to. One that is a sound cloud is spoilt by it.
    std::wstring output(uint8_t choice);
    // From now on nothing is expected of any cloud.
    void spoilAll();

    // Opens the clouds that were opened and not spoilt, restores them, and ends the process if a point is missing.
    void check() const;

private:
    struct Content {
        int64_t points = 0;
        uint64_t sum = 0; // of a hash of each place, so that the order does not matter
        bool operator==(const Content&) const = default;
    };
    struct File {
        std::string name;
        Bytes bytes;
        Content content;
        std::atomic<bool> isOpened{false};
        std::atomic<bool> isSpoilt{false};
    };
    void add(const std::string& name, const Bytes& bytes);
    void build(const std::string& name, int type);
    [[nodiscard]] Content restored(const std::string& name) const;
    File& at(size_t place);

    const TempDir dir;
    std::list<File> files;
};
