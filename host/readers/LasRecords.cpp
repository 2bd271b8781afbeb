#include "readers/LasRecords.h"

#include "readers/PointReader.h"

#include <algorithm>

// Large enough that the calls to the system cost nothing, small enough that a block is still in the second-level cache
// when its records are looked at.
static constexpr size_t BLOCK_SIZE = 256 * 1024;

namespace {

class PlainRecords : public LasRecords {
public:
    PlainRecords(std::shared_ptr<const InputFile> input, const LasHeader& header);

    std::span<const std::byte> next() override;
    void rewind() override { position = 0; }
    [[nodiscard]] std::vector<std::string> warnings() const override { return complaints; }

private:
    const std::shared_ptr<const InputFile> file; // shared with whoever else reads from it
    const uint64_t dataOffset;
    const size_t recordLength;
    uint64_t count = 0;    // records that the header announces and the file holds
    uint64_t position = 0; // of the next record, at most count
    std::vector<std::byte> block;
    std::vector<std::string> complaints;
};

} // namespace

PlainRecords::PlainRecords(std::shared_ptr<const InputFile> input, const LasHeader& header)
    : file(std::move(input)), dataOffset(header.dataOffset), recordLength(header.recordLength) {
    const uint64_t bytes = file->size() > dataOffset ? file->size() - dataOffset : 0;
    count = std::min(header.announcedCount, bytes / recordLength);
    if (count == header.announcedCount) return;
    const std::string shortage = describeShortage(header.announcedCount, count);
    if (count == 0) throw FileError(shortage);
    complaints.push_back(shortage);
}

std::span<const std::byte> PlainRecords::next() {
    const uint64_t wanted = std::min<uint64_t>(count - position, std::max<size_t>(BLOCK_SIZE / recordLength, 1));
    block.resize(static_cast<size_t>(wanted) * recordLength);
    file->readWhole(dataOffset + position * recordLength, block);
    position += wanted;
    return block;
}

std::unique_ptr<LasRecords> openPlainRecords(std::shared_ptr<const InputFile> file, const LasHeader& header) {
    return std::make_unique<PlainRecords>(std::move(file), header);
}

std::string describeShortage(uint64_t announced, uint64_t found) {
    return "the header announces " + std::to_string(announced) + " points, the file holds " +
           (found == 0 ? "none" : std::to_string(found));
}
