#pragma once

#include "readers/InputFile.h"
#include "readers/LasHeader.h"
#include "readers/LazScheme.h"

#include <cstdint>
#include <optional>
#include <vector>

// Where a compressed chunk stands in its file. Lies within the file, and has room for its first point.
struct LazChunkEntry {
    uint64_t offset = 0; // from the start of the file
    uint64_t bytes = 0;
    uint64_t points = 0; // more than 0
};

// The chunks of a chunked file as its table says, up to as many points as the header announces. Empty when there is no
// table, as in a file whose end is missing, or when it does not fit the file.
std::optional<std::vector<LazChunkEntry>> readChunkTable(const InputFile& file, const LasHeader& header,
                                                         const LazScheme& scheme);

// The same for layered chunks without a table: goes from head to head, as far as the chunks are complete.
std::vector<LazChunkEntry> findLayeredChunks(const InputFile& file, const LasHeader& header, const LazScheme& scheme);
