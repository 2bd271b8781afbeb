#include "readers/LazRecords.h"

#include "readers/LazChunk.h"
#include "readers/LazChunkTable.h"
#include "readers/PointReader.h"

#include <algorithm>
#include <deque>
#include <future>
#include <optional>
#include <thread>

// Records of a portion: what a chunk decodes ahead of its use, and what a larger chunk delivers at a time. Common
// chunks have 50000 points and fit.
static constexpr size_t PORTION_SIZE = size_t{8} << 20;

// Records of a block from a file that is decoded as it is read: enough to make the way around it cheap.
static constexpr size_t BLOCK_SIZE = 256 * 1024;

// A table of chunks is preceded by its position, even where it is missing.
static constexpr uint64_t POSITION_SIZE = 8;

namespace {

// A chunk in memory with what is left of it.
class LoadedChunk {
public:
    LoadedChunk(const InputFile& file, const LazScheme& scheme, size_t recordLength, const LazChunkEntry& entry);

    // The next portion; empty at the end. Throws FileError when the chunk is damaged.
    [[nodiscard]] std::vector<std::byte> decode();

private:
    const size_t recordLength;
    uint64_t left; // points not decoded yet
    std::vector<std::byte> bytes;
    std::optional<LazBytes> stream; // of `bytes`, for a pointwise chunk
    std::unique_ptr<LazChunk> chunk;
};

struct DecodedChunk {
    std::vector<std::byte> records;    // its first portion
    std::unique_ptr<LoadedChunk> rest; // null when there is no more
};

class ChunkedRecords : public LasRecords {
public:
    ChunkedRecords(std::shared_ptr<const InputFile> input, const LasHeader& header, LazScheme description,
                   std::vector<LazChunkEntry> table);

    std::span<const std::byte> next() override;
    void rewind() override;
    [[nodiscard]] std::vector<std::string> warnings() const override { return complaints; }

    void warn(std::string text) { complaints.push_back(std::move(text)); }

private:
    void decodeAhead();
    [[nodiscard]] DecodedChunk decode(size_t number) const;

    const std::shared_ptr<const InputFile> file; // shared with whoever else reads from it
    const LazScheme scheme;
    const size_t recordLength;
    const std::vector<LazChunkEntry> chunks;
    std::vector<std::string> complaints;
    DecodedChunk current; // the one that the caller looks at
    size_t started = 0;   // chunks given to `ahead` since the start
    // Last, so that its threads have ended before anything they use is gone.
    std::deque<std::future<DecodedChunk>> ahead;
};

class StreamedRecords : public LasRecords {
public:
    StreamedRecords(std::shared_ptr<const InputFile> input, const LasHeader& header, LazScheme description);

    std::span<const std::byte> next() override;
    void rewind() override;
    [[nodiscard]] std::vector<std::string> warnings() const override { return complaints; }

    void warn(std::string text) { complaints.push_back(std::move(text)); }

private:
    const std::shared_ptr<const InputFile> file; // shared with whoever else reads from it
    const LazScheme scheme;
    const size_t recordLength;
    const uint64_t count;     // points that the header announces
    const uint64_t chunkSize; // points of one code
    const uint64_t dataOffset;
    std::vector<std::string> complaints;
    bool shortageKnown = false; // whether `complaints` tells that there are fewer points
    uint64_t delivered = 0;
    uint64_t leftInChunk = 0; // points not decoded yet of `chunk`
    std::unique_ptr<LazBytes> bytes;
    std::unique_ptr<LazChunk> chunk; // reads from `bytes`
    std::vector<std::byte> block;
};

} // namespace

LoadedChunk::LoadedChunk(const InputFile& file, const LazScheme& scheme, size_t length, const LazChunkEntry& entry)
    : recordLength(length), left(entry.points), bytes(static_cast<size_t>(entry.bytes)) {
    file.readWhole(entry.offset, bytes);
    if (scheme.compressor == LazScheme::LAYERED_CHUNKED) {
        if (LazLayeredSize::headSize(scheme, length) > bytes.size() ||
            LazLayeredSize::parse(scheme, length, bytes).points < left)
            throw FileError("it holds fewer points than the table says");
        chunk = openLayeredChunk(scheme, length, bytes);
    } else {
        stream.emplace(bytes);
        chunk = openPointwiseChunk(scheme, length, *stream);
    }
}

std::vector<std::byte> LoadedChunk::decode() {
    const uint64_t points = std::min<uint64_t>(left, std::max<size_t>(PORTION_SIZE / recordLength, 1));
    std::vector<std::byte> records(static_cast<size_t>(points) * recordLength);
    if (chunk->decode(records) != points) throw FileError("its bytes end before its points");
    left -= points;
    return records;
}

ChunkedRecords::ChunkedRecords(std::shared_ptr<const InputFile> input, const LasHeader& header, LazScheme description,
                               std::vector<LazChunkEntry> table)
    : file(std::move(input)), scheme(std::move(description)), recordLength(header.recordLength),
      chunks(std::move(table)) {
    uint64_t found = 0;
    for (const LazChunkEntry& chunk : chunks) found += chunk.points;
    if (found == header.announcedCount) return;
    const std::string shortage = describeShortage(header.announcedCount, found);
    if (found == 0) throw FileError(shortage);
    warn(shortage);
}

void ChunkedRecords::rewind() {
    ahead.clear();
    current = {};
    started = 0;
}

// One more chunk than threads that the machine runs at once, so that none of them waits for the caller; on large
// machines fewer, for the sake of memory.
static size_t chunksAhead() {
    return std::clamp<size_t>(std::thread::hardware_concurrency(), 1, 8) + 1;
}

void ChunkedRecords::decodeAhead() {
    static const size_t LIMIT = chunksAhead();
    for (; started < chunks.size() && ahead.size() < LIMIT; ++started)
        ahead.push_back(std::async(std::launch::async, [this, number = started] { return decode(number); }));
}

// Called on other threads; touches only what does not change.
DecodedChunk ChunkedRecords::decode(size_t number) const {
    try {
        DecodedChunk decoded;
        decoded.rest = std::make_unique<LoadedChunk>(*file, scheme, recordLength, chunks[number]);
        decoded.records = decoded.rest->decode();
        return decoded;
    } catch (const FileError& error) {
        throw FileError("compressed chunk " + std::to_string(number + 1) + " of " + std::to_string(chunks.size()) +
                        " is damaged: " + error.what());
    }
}

std::span<const std::byte> ChunkedRecords::next() {
    if (current.rest) {
        current.records = current.rest->decode();
        if (!current.records.empty()) return current.records;
    }
    current = {};
    decodeAhead();
    if (ahead.empty()) return {};
    std::future<DecodedChunk> decoded = std::move(ahead.front());
    ahead.pop_front();
    current = decoded.get();
    return current.records;
}

StreamedRecords::StreamedRecords(std::shared_ptr<const InputFile> input, const LasHeader& header, LazScheme description)
    : file(std::move(input)), scheme(std::move(description)), recordLength(header.recordLength),
      count(header.announcedCount),
      chunkSize(scheme.compressor == LazScheme::POINTWISE ? header.announcedCount : scheme.chunkSize),
      dataOffset(header.dataOffset + (scheme.compressor == LazScheme::POINTWISE ? 0 : POSITION_SIZE)) {
    // Finding nothing is an error of the file, and better told now than by the first read.
    if (count > 0 && dataOffset >= file->size()) throw FileError(describeShortage(count, 0));
}

void StreamedRecords::rewind() {
    delivered = 0;
    leftInChunk = 0;
    chunk.reset();
    bytes.reset();
}

std::span<const std::byte> StreamedRecords::next() {
    if (delivered == count || (bytes && bytes->ended())) return {};
    if (!bytes) bytes = std::make_unique<LazBytes>(*file, dataOffset);
    if (leftInChunk == 0) {
        chunk = openPointwiseChunk(scheme, recordLength, *bytes);
        leftInChunk = std::min(chunkSize, count - delivered);
    }
    const uint64_t wanted = std::min<uint64_t>(leftInChunk, std::max<size_t>(BLOCK_SIZE / recordLength, 1));
    block.assign(static_cast<size_t>(wanted) * recordLength, std::byte{});
    const size_t got = chunk->decode(block);
    block.resize(got * recordLength);
    delivered += got;
    leftInChunk -= got;
    if (got < wanted) {
        const std::string shortage = describeShortage(count, delivered);
        if (delivered == 0) throw FileError(shortage);
        if (!shortageKnown) warn(shortage);
        shortageKnown = true;
    }
    return block;
}

static const char* const NO_TABLE = "the table of compressed chunks is missing or damaged";

std::unique_ptr<LasRecords> openLazRecords(std::shared_ptr<const InputFile> file, const LasHeader& header) {
    if (header.compression.empty())
        throw FileError("the points are compressed, but the description of the compression is missing");
    LazScheme scheme = LazScheme::parse(header.compression, header.format.number, header.recordLength);
    const bool chunked = scheme.compressor != LazScheme::POINTWISE;
    if (!chunked || header.announcedCount == 0)
        return std::make_unique<StreamedRecords>(std::move(file), header, std::move(scheme));

    std::optional<std::vector<LazChunkEntry>> chunks = readChunkTable(*file, header, scheme);
    const bool listed = chunks.has_value();
    if (!listed && scheme.compressor == LazScheme::LAYERED_CHUNKED) chunks = findLayeredChunks(*file, header, scheme);
    if (chunks) {
        auto records = std::make_unique<ChunkedRecords>(std::move(file), header, std::move(scheme), std::move(*chunks));
        if (!listed) records->warn(NO_TABLE);
        return records;
    }
    if (scheme.chunkSize == LazScheme::VARIABLE_CHUNKS) throw FileError(NO_TABLE);
    auto records = std::make_unique<StreamedRecords>(std::move(file), header, std::move(scheme));
    records->warn(NO_TABLE);
    return records;
}
