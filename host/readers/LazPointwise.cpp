#include "readers/LazChunk.h"
#include "readers/LazItemDecoder.h"

#include <optional>

namespace {

class PointwiseChunk : public LazChunk {
public:
    PointwiseChunk(const LazScheme& scheme, size_t length, LazBytes& input)
        : items(scheme.items), recordLength(length), bytes(input) {}

    size_t decode(std::span<std::byte> records) override;

private:
    void start(std::span<std::byte> first);
    void decodePoint(std::byte* record);

    const std::vector<LazItem>& items; // of the scheme, which outlives its chunks
    const size_t recordLength;
    LazBytes& bytes;
    std::optional<ArithmeticDecoder> decoder; // empty until the first point has been taken
    std::vector<std::unique_ptr<LazItemDecoder>> decoders;
};

} // namespace

size_t PointwiseChunk::decode(std::span<std::byte> records) {
    size_t whole = 0;
    for (; records.size() >= recordLength; records = records.subspan(recordLength)) {
        if (decoder) {
            decodePoint(records.data());
        } else {
            start(records.first(recordLength));
        }
        // A symbol is complete before the bytes of the next one are fetched, so that no zero from behind the end is
        // part of the points before this one.
        if (bytes.ended()) break;
        ++whole;
    }
    return whole;
}

// The first point stands as it is and is what the others are predicted from; the code begins behind it.
void PointwiseChunk::start(std::span<std::byte> first) {
    bytes.copyTo(first);
    const std::byte* at = first.data();
    for (const LazItem& item : items) {
        decoders.push_back(makeItemDecoder(item, at));
        at += item.size;
    }
    decoder.emplace(bytes);
}

void PointwiseChunk::decodePoint(std::byte* record) {
    for (size_t i = 0; i < items.size(); ++i) {
        decoders[i]->decode(*decoder, record);
        record += items[i].size;
    }
}

std::unique_ptr<LazItemDecoder> makeItemDecoder(const LazItem& item, const std::byte* first) {
    const bool old = item.version == 1;
    return old ? makeItemDecoderV1(item, first) : makeItemDecoderV2(item, first);
}

std::unique_ptr<LazChunk> openPointwiseChunk(const LazScheme& scheme, size_t recordLength, LazBytes& bytes) {
    return std::make_unique<PointwiseChunk>(scheme, recordLength, bytes);
}
