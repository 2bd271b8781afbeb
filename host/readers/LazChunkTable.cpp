#include "readers/LazChunkTable.h"

#include "readers/IntegerDecoder.h"
#include "readers/LazChunk.h"
#include "readers/RecordField.h"

#include <algorithm>
#include <array>

// The points of a chunked file begin with the position of the table, and the chunks follow. The table is two plain
// numbers and then a code: per chunk its points, where chunks vary, and its bytes, both predicted from the chunk
// before.

static constexpr RecordField<uint64_t> POSITION{0};
static constexpr uint64_t AT_THE_END = UINT64_MAX; // as position: the file's last eight bytes hold it

namespace {

struct TableRecord {
    static constexpr RecordField<uint32_t> VERSION{0};
    static constexpr RecordField<uint32_t> CHUNK_COUNT{VERSION.end()};
    static constexpr size_t SIZE = CHUNK_COUNT.end();
};
static_assert(TableRecord::SIZE == 8, "files with this record exist");

} // namespace

static std::optional<uint64_t> readPosition(const InputFile& file, uint64_t offset) {
    std::array<std::byte, POSITION.end()> bytes{};
    if (file.readAt(offset, bytes) != bytes.size()) return std::nullopt;
    return POSITION.read(bytes.data());
}

static std::optional<uint64_t> findTable(const InputFile& file, const LasHeader& header) {
    std::optional<uint64_t> position = readPosition(file, header.dataOffset);
    if (position == AT_THE_END) position = readPosition(file, file.size() - POSITION.end());
    const uint64_t firstChunk = header.dataOffset + POSITION.end();
    if (!position || *position < firstChunk || *position > file.size()) return std::nullopt;
    return position;
}

// Appends a chunk of which no more than `wanted` points count. Returns those.
static uint64_t append(std::vector<LazChunkEntry>& chunks, LazChunkEntry chunk, uint64_t wanted) {
    chunk.points = std::min(chunk.points, wanted);
    if (chunk.points > 0) chunks.push_back(chunk);
    return chunk.points;
}

std::optional<std::vector<LazChunkEntry>> readChunkTable(const InputFile& file, const LasHeader& header,
                                                         const LazScheme& scheme) {
    const std::optional<uint64_t> table = findTable(file, header);
    std::array<std::byte, TableRecord::SIZE> head{};
    if (!table || file.readAt(*table, head) != head.size()) return std::nullopt;
    const uint32_t count = TableRecord::CHUNK_COUNT.read(head.data());
    if (TableRecord::VERSION.read(head.data()) != 0 || count == 0) return std::nullopt;

    LazBytes bytes(file, *table + TableRecord::SIZE);
    ArithmeticDecoder decoder(bytes);
    IntegerDecoder number(32, 2);
    const bool vary = scheme.chunkSize == LazScheme::VARIABLE_CHUNKS;
    LazChunkEntry chunk{header.dataOffset + POSITION.end(), 0, vary ? 0 : scheme.chunkSize};
    std::vector<LazChunkEntry> chunks;
    uint64_t missing = header.announcedCount;
    const auto decode = [&](uint64_t before, size_t context) {
        return static_cast<uint32_t>(number.decode(decoder, static_cast<int32_t>(before), context));
    };
    // Each chunk takes room before the table, which bounds a count that is not true.
    for (uint32_t i = 0; i < count && missing > 0; ++i) {
        chunk.offset += chunk.bytes;
        if (vary) chunk.points = decode(chunk.points, 0);
        chunk.bytes = decode(chunk.bytes, 1);
        if (chunk.bytes < header.recordLength || chunk.bytes > *table - chunk.offset) return std::nullopt;
        missing -= append(chunks, chunk, missing);
    }
    if (bytes.ended()) return std::nullopt;
    return chunks;
}

std::vector<LazChunkEntry> findLayeredChunks(const InputFile& file, const LasHeader& header, const LazScheme& scheme) {
    std::vector<LazChunkEntry> chunks;
    std::vector<std::byte> head(LazLayeredSize::headSize(scheme, header.recordLength));
    uint64_t offset = header.dataOffset + POSITION.end();
    uint64_t missing = header.announcedCount;
    while (missing > 0 && file.readAt(offset, head) == head.size()) {
        const LazLayeredSize size = LazLayeredSize::parse(scheme, header.recordLength, head);
        if (size.bytes > file.size() - offset) break;
        missing -= append(chunks, {offset, size.bytes, size.points}, missing);
        offset += size.bytes;
    }
    return chunks;
}
