#pragma once

#include "format/memory_mapped_file.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

// One change of a node: its stored points, its point count, or both. Either of them can be left out.
struct NodeChange {
    static constexpr int16_t SAME_COUNT = -1;

    int64_t nodeIndex = 0;
    int16_t count = SAME_COUNT;
    std::span<const unsigned char> points{}; // all that the node stores, deleted ones included; empty: unchanged
};

// What a journal is bound to: the length of the point file and its tree, counts left out, since those change.
struct EditedFile {
    // `tree` is the tree image, header included, of a file of `version`.
    EditedFile(std::span<const unsigned char> tree, int version, int64_t size);
    bool operator==(const EditedFile&) const = default;

    uint64_t treeChecksum;
    int64_t fileSize;
};

// Where the journal of a point file lies; empty if the file can't be found. Symbolic links are followed, so that
// every name of a file leads to the same journal.
std::string journalPathFor(const std::string& pointFile);

// The journal beside a point file while it is edited. Each change is appended before any of it goes to the point file,
// so that a process that is killed in between leaves either all of the change in the journal or nothing of it in
// the file. Applying a journal twice does no harm: a change holds all of a node.
//
// Made with the first change and locked as long as it is open, so that no two processes edit a file. Used from its
// start again when it has grown and every change in it reached the file. All operations may be called from any thread.
class EditJournal {
public:
    // Past this many bytes the journal starts over.
    static constexpr int64_t ENOUGH = int64_t{32} << 20;

    [[nodiscard]] bool isOpen() const { return file.is_open(); }

    // Makes the journal; false, with the reason in nimbrelLastError, if another process has it, if it holds changes
    // that this process never saw, or if it can't be written. Belongs to one thread, before any append.
    bool open(const std::string& pathIn, const EditedFile& target);

    // Keeps a change; false when it could not, or when an earlier one did not reach the file. What true was said to is
    // followed by applied().
    bool append(const NodeChange& change);

    // The change is in the file. If not all of it went there, the journal stays, for the next one to open the file.
    void applied(bool isWhole);

    // Has the journal stay when it is closed, for the next one to open the file.
    void keep();

    // Removes the journal unless it is to stay, or something in it did not reach the file.
    void close();

private:
    std::string path;
    memory_mapped_file::writable_mmf file;
    std::mutex mutex; // guards everything below
    std::condition_variable allApplied;
    int64_t end = 0;       // behind the change appended last
    uint64_t sequence = 0; // of the next change
    int pending = 0;       // changes appended and not applied
    bool isNeeded = false; // a change is not safe in the file
};

// The journal that a killed process left beside a point file.
class LeftJournal {
public:
    enum State {
        ABSENT,
        IN_USE,     // by a process that edits the file now; what the file holds is as it should be
        UNREADABLE, // there is one, but the system does not let it be read
        STRANGE,    // a file of somebody else, to be left alone
        LEFT
    };

    // Looks for it; with `keepOut` others are kept from it as long as this lives.
    State open(const std::string& pathIn, bool keepOut);

    // Whether it was written for this file as it is now. Foreign ones are of no use.
    [[nodiscard]] bool belongsTo(const EditedFile& target) const;

    // The next whole change, which points into this object until the next call; none where the journal ends.
    std::optional<NodeChange> next();

    void remove() const;

private:
    std::string path;
    memory_mapped_file::read_only_mmf file;
    uint64_t position = 0;
    std::optional<uint64_t> expected; // sequence of the next change
    std::vector<unsigned char> points;
};
