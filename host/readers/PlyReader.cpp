#include "readers/PlyReader.h"
#include "readers/ByteInput.h"
#include "readers/ChannelReader.h"
#include "readers/PlyHeader.h"
#include "readers/TextFields.h"

#include <algorithm>
#include <array>
#include <limits>

// Three ways through the vertices: lines of text, binary records of one size, and binary records with lists in them,
// which are walked property by property. Elements in front of the vertices are walked in the same way with nothing
// kept. A count in the header is a promise only: every loop over records ends with the input.

namespace {

// A single-valued property of a binary record that something is read from.
struct Slot {
    Channel channel;
    PlyType type;
    size_t offset; // in the record; of no meaning in records with lists
};

class PlyReader : public ChannelReader {
public:
    explicit PlyReader(std::unique_ptr<ByteInput> bytes);

    [[nodiscard]] std::string describe() const override;
    [[nodiscard]] std::vector<std::string> warnings() const override;
    [[nodiscard]] uint64_t announcedCount() const override { return announced; }
    [[nodiscard]] double fractionRead() const override;
    void rewind() override;

protected:
    size_t decode(std::span<ChannelValues> points) override;
    [[nodiscard]] bool canRewind() const override { return input.isSeekable(); }

private:
    [[nodiscard]] const PlyElement& vertex() const { return header.elements[vertexIndex]; }
    [[nodiscard]] bool isBigEndian() const { return header.encoding == PlyHeader::BINARY_BIG; }

    void findVertices();
    void assignChannels();
    void limitAnnouncedCount();

    bool skipElements();
    bool skipElement(const PlyElement& element);
    bool walkRecord(const PlyElement& element, ChannelValues* values);
    bool walkProperty(const PlyProperty& property, Channel channel, ChannelValues* values);

    bool nextRecordLine(InputLine& line);
    void parseLine(std::string_view line, ChannelValues& values) const;
    void parseLineWithLists(std::string_view line, ChannelValues& values) const;
    bool decodeLine(ChannelValues& values, bool isLast);
    size_t decodeRecords(std::span<ChannelValues> points);
    void scaleColours(ChannelValues& values) const;
    [[noreturn]] void failLine(const std::string& what) const;

    const std::unique_ptr<ByteInput> source;
    ByteInput& input = *source;
    PlyHeader header;
    size_t vertexIndex = 0;
    std::vector<Channel> channels;      // of each property of a vertex
    std::vector<Slot> slots;            // those that are kept
    std::array<bool, 3> isUnitColour{}; // red, green, blue of a floating type
    bool endsWithVertices = true;       // no records follow the vertices
    uint64_t announced = 0;

    bool atVertices = false; // the elements in front have been passed over
    uint64_t taken = 0;      // vertices decoded since the start
    uint64_t lineNumber = 0; // of the line read last
    bool cutShort = false;   // the input ends before its last vertex
    uint64_t wholeCount = 0; // vertices in front of the end, if cut short
};

PlyReader::PlyReader(std::unique_ptr<ByteInput> bytes) : source(std::move(bytes)), header(PlyHeader::read(input)) {
    lineNumber = header.lineCount;
    findVertices();
    assignChannels();
    limitAnnouncedCount();
}

void PlyReader::findVertices() {
    const auto found = std::find_if(header.elements.begin(), header.elements.end(),
                                    [](const PlyElement& element) { return element.name == "vertex"; });
    if (found == header.elements.end()) throw FileError("has no element \"vertex\"");
    vertexIndex = static_cast<size_t>(found - header.elements.begin());
    endsWithVertices =
        std::all_of(found + 1, header.elements.end(), [](const PlyElement& element) { return element.count == 0; });
}

void PlyReader::assignChannels() {
    for (const PlyProperty& property : vertex().properties) {
        channels.push_back(property.countType ? SKIPPED : channelFromName(property.name));
    }
    keepUsableChannels(channels);
    for (Channel axis : {X, Y, Z}) {
        if (!hasChannel(channels, axis)) {
            throw FileError("its vertices have no property " + std::string(channelName(axis)));
        }
    }
    hasColour = hasChannel(channels, RED);

    size_t offset = 0;
    for (size_t i = 0; i < channels.size(); ++i) {
        const PlyType type = vertex().properties[i].type;
        if (channels[i] != SKIPPED) slots.push_back({channels[i], type, offset});
        if (channels[i] >= RED && channels[i] <= BLUE) {
            isUnitColour[channels[i] - RED] = type == PlyType::FLOAT32 || type == PlyType::FLOAT64;
        }
        offset += sizeOfPlyType(type);
    }
}

// The header may promise more than the file can hold; whoever reserves memory should not believe it.
void PlyReader::limitAnnouncedCount() {
    announced = vertex().count;
    if (input.size() == 0) return;
    const uint64_t rest = input.size() - std::min(input.size(), header.size);
    // The shortest line has a digit and a separator for each property.
    const uint64_t smallest =
        header.encoding == PlyHeader::ASCII ? vertex().properties.size() * 2 : vertex().smallestSize();
    announced = std::min(announced, (rest + 1) / smallest);
}

std::string PlyReader::describe() const {
    std::string text = "PLY " + std::string(header.encodingName()) + ", " + std::to_string(vertex().count) + " points,";
    for (Channel channel : channels) {
        if (channel != SKIPPED) text.append(1, ' ').append(channelName(channel));
    }
    return text;
}

std::vector<std::string> PlyReader::warnings() const {
    if (!cutShort) return {};
    return {"the file ends after " + std::to_string(wholeCount) + " of " + std::to_string(vertex().count) + " points"};
}

double PlyReader::fractionRead() const {
    if (input.size() == 0) return 0;
    return std::min(1.0, static_cast<double>(input.position()) / static_cast<double>(input.size()));
}

void PlyReader::rewind() {
    if (input.position() == header.size && taken == 0) return;
    input.rewind();
    if (!input.skip(header.size)) throw FileError("has become shorter while it was read");
    lineNumber = header.lineCount;
    atVertices = false;
    taken = 0;
}

size_t PlyReader::decode(std::span<ChannelValues> points) {
    if (!atVertices) {
        if (vertex().count > 0 && !skipElements()) cutShort = true;
        atVertices = true;
    }
    const size_t wanted = static_cast<size_t>(std::min<uint64_t>(points.size(), vertex().count - taken));
    points = points.first(wanted);
    size_t count = 0;
    if (header.encoding != PlyHeader::ASCII && !vertex().hasLists()) {
        count = decodeRecords(points);
    } else if (header.encoding != PlyHeader::ASCII) {
        while (count < wanted && walkRecord(vertex(), &points[count])) ++count;
    } else {
        while (count < wanted && decodeLine(points[count], taken + count + 1 == vertex().count)) ++count;
    }
    taken += count;
    if (count < wanted) {
        cutShort = true;
        wholeCount = taken;
    }
    for (ChannelValues& values : points.first(count)) scaleColours(values);
    return count;
}

// Passes over the elements in front of the vertices; false when the input ends before.
bool PlyReader::skipElements() {
    for (size_t i = 0; i < vertexIndex; ++i) {
        if (!skipElement(header.elements[i])) return false;
    }
    return true;
}

bool PlyReader::skipElement(const PlyElement& element) {
    if (element.properties.empty()) return true;
    if (header.encoding == PlyHeader::ASCII) {
        InputLine line;
        for (uint64_t i = 0; i < element.count; ++i) {
            if (!nextRecordLine(line)) return false;
        }
        return true;
    }
    if (element.hasLists()) {
        for (uint64_t i = 0; i < element.count; ++i) {
            if (!walkRecord(element, nullptr)) return false;
        }
        return true;
    }
    const uint64_t size = element.smallestSize();
    // A product beyond 64 bits is beyond the end of the input, too.
    constexpr uint64_t LARGEST = std::numeric_limits<uint64_t>::max();
    return input.skip(element.count > LARGEST / size ? LARGEST : element.count * size);
}

// Reads a binary record into `values`, or passes over it when that is null; false when the input ends before.
bool PlyReader::walkRecord(const PlyElement& element, ChannelValues* values) {
    for (size_t i = 0; i < element.properties.size(); ++i) {
        if (!walkProperty(element.properties[i], values ? channels[i] : SKIPPED, values)) return false;
    }
    return true;
}

bool PlyReader::walkProperty(const PlyProperty& property, Channel channel, ChannelValues* values) {
    const PlyType type = property.countType.value_or(property.type);
    const size_t size = sizeOfPlyType(type);
    if (!input.need(size)) return false;
    const double value = loadPlyValue(input.window().data(), type, isBigEndian());
    input.consume(size);
    if (!property.countType) {
        if (channel != SKIPPED) (*values)[channel] = value;
        return true;
    }
    if (value < 0) throw FileError("a list of negative length, at byte " + std::to_string(input.position()));
    return input.skip(static_cast<uint64_t>(value) * sizeOfPlyType(property.type));
}

// The next line that is not blank; false at the end of the input.
bool PlyReader::nextRecordLine(InputLine& line) {
    while (input.nextLine(line)) {
        ++lineNumber;
        if (line.tooLong || line.text.find_first_not_of(" \t") != std::string_view::npos) return true;
    }
    return false;
}

bool PlyReader::decodeLine(ChannelValues& values, bool isLast) {
    InputLine line;
    if (!nextRecordLine(line)) return false;
    if (line.tooLong) failLine("is too long");
    if (!line.terminated && !(isLast && endsWithVertices)) return false;
    parseLine(line.text, values);
    return true;
}

void PlyReader::failLine(const std::string& what) const {
    throw FileError("line " + std::to_string(lineNumber) + ": " + what);
}

void PlyReader::parseLine(std::string_view line, ChannelValues& values) const {
    if (vertex().hasLists()) return parseLineWithLists(line, values);
    if (!parseFields(line, channels, values)) failLine("is not a vertex");
}

void PlyReader::parseLineWithLists(std::string_view line, ChannelValues& values) const {
    const auto fields = splitFields(line);
    size_t next = 0;
    for (size_t i = 0; i < channels.size(); ++i) {
        if (next >= fields.size()) failLine("is not a vertex");
        const std::string_view field = fields[next++];
        if (vertex().properties[i].countType) {
            const auto length = wholeNumberOfField(field);
            if (!length || *length > fields.size() - next) failLine("is not a vertex");
            next += static_cast<size_t>(*length);
        } else if (channels[i] != SKIPPED) {
            const auto value = numberOfField(field);
            if (!value) failLine("is not a vertex");
            values[channels[i]] = *value;
        }
    }
}

size_t PlyReader::decodeRecords(std::span<ChannelValues> points) {
    const auto size = static_cast<size_t>(vertex().smallestSize());
    size_t count = 0;
    while (count < points.size() && input.need(size)) {
        const char* record = input.window().data();
        const size_t whole = std::min(points.size() - count, input.window().size() / size);
        for (size_t i = 0; i < whole; ++i, record += size) {
            ChannelValues& values = points[count + i];
            for (const Slot& slot : slots) {
                values[slot.channel] = loadPlyValue(record + slot.offset, slot.type, isBigEndian());
            }
        }
        input.consume(whole * size);
        count += whole;
    }
    return count;
}

void PlyReader::scaleColours(ChannelValues& values) const {
    for (size_t i = 0; i < 3; ++i) {
        if (isUnitColour[i]) values[RED + i] *= 255;
    }
}

} // namespace

std::unique_ptr<PointReader> openPly(std::unique_ptr<ByteInput> bytes) {
    return std::make_unique<PlyReader>(std::move(bytes));
}

std::unique_ptr<PointReader> openPly(const std::string& path, const ReadOptions&) {
    return openPly(std::make_unique<ByteInput>(path));
}
