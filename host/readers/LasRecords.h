#pragma once

#include "readers/InputFile.h"
#include "readers/LasHeader.h"

#include <memory>
#include <span>
#include <string>
#include <vector>

// The records of a LAS or LAZ file in the layout of their point format, in file order and a block at a time.
//
// Belongs to one thread. The fields that the engine does not take may be zero in a record that was decompressed.
class LasRecords {
public:
    virtual ~LasRecords() = default;

    // The next whole records, valid until the next call; empty at the end. Throws FileError.
    [[nodiscard]] virtual std::span<const std::byte> next() = 0;

    virtual void rewind() = 0;

    // What was found wrong so far and does not keep the records from being read.
    [[nodiscard]] virtual std::vector<std::string> warnings() const = 0;
};

// Records as they stand in the file. Throws FileError when there is none although the header announces some.
std::unique_ptr<LasRecords> openPlainRecords(std::shared_ptr<const InputFile> file, const LasHeader& header);

// "the header announces 1065 points, the file holds 1064"
std::string describeShortage(uint64_t announced, uint64_t found);
