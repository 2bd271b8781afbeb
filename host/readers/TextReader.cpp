#include "readers/TextReader.h"
#include "readers/ByteInput.h"
#include "readers/ChannelReader.h"
#include "readers/TextColumns.h"
#include "readers/TextFields.h"

#include <algorithm>
#include <cmath>

// Opening looks at the first window of the input without consuming it, so that a pipe can still be read from its
// first line. What a line means is decided there once; reading then only parses.

static constexpr size_t SAMPLE_ROWS = 100;

static std::string_view withoutLeadingBlanks(std::string_view line) {
    return line.substr(std::min(line.size(), line.find_first_not_of(" \t")));
}

static bool isComment(std::string_view line) {
    const std::string_view text = withoutLeadingBlanks(line);
    return text.empty() || text.front() == '#' || text.starts_with("//");
}

static bool isCountLine(std::string_view line) {
    const auto fields = splitFields(line, 2);
    return fields.size() == 1 && wholeNumberOfField(fields[0]);
}

static std::string_view withoutByteOrderMark(std::string_view text) {
    static constexpr std::string_view MARK = "\xef\xbb\xbf";
    return text.starts_with(MARK) ? text.substr(MARK.size()) : text;
}

namespace {

// The lines at the front of a text that may hold points or names of columns.
struct Sample {
    struct Row {
        std::string_view line;
        uint64_t number;
    };

    std::vector<Row> rows;        // neither comments nor counts, SAMPLE_ROWS + 1 at most
    std::string_view lastComment; // in front of the first row
    uint64_t count = 0;           // in the first row if that is a count line

    // A last line without an end is taken only if `isComplete`: else the text may go on in the middle of it.
    Sample(std::string_view text, bool isComplete);
};

Sample::Sample(std::string_view text, bool isComplete) {
    uint64_t number = 0;
    while (!text.empty() && rows.size() <= SAMPLE_ROWS) {
        const size_t length = std::min(text.size(), text.find('\n'));
        if (length == text.size() && !isComplete) return;
        std::string_view line = text.substr(0, length);
        text.remove_prefix(std::min(text.size(), length + 1));
        ++number;
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (isComment(line)) {
            if (rows.empty() && !withoutLeadingBlanks(line).empty()) lastComment = withoutLeadingBlanks(line);
        } else if (isCountLine(line)) {
            if (rows.empty()) count = wholeNumberOfField(splitFields(line, 1)[0]).value_or(0);
        } else {
            rows.push_back({line, number});
        }
    }
}

class TextReader : public ChannelReader {
public:
    TextReader(std::unique_ptr<ByteInput> bytes, const ReadOptions& options);

    [[nodiscard]] std::string describe() const override { return "text, " + columns.describe(); }
    [[nodiscard]] std::vector<std::string> warnings() const override;
    [[nodiscard]] uint64_t announcedCount() const override { return announced; }
    [[nodiscard]] double fractionRead() const override;
    void rewind() override;

protected:
    size_t decode(std::span<ChannelValues> points) override;
    [[nodiscard]] bool canRewind() const override { return input.isSeekable(); }

private:
    void chooseColumns(const Sample& sample, const std::string& names);
    void checkRows(const Sample& sample);
    void noteBadLine();

    const std::unique_ptr<ByteInput> source;
    ByteInput& input = *source;
    TextColumns columns;
    bool isUnitColour = false; // colours of 0..1
    uint64_t headingLine = 0;  // number of a line in front of the points that holds none, 0 if there is none
    uint64_t announced = 0;    // by a count line
    uint64_t lineNumber = 0;   // of the line read last
    uint64_t badLines = 0;     // in this pass
    uint64_t mostBadLines = 0; // of all passes
    uint64_t firstBadLine = 0;
};

TextReader::TextReader(std::unique_ptr<ByteInput> bytes, const ReadOptions& options) : source(std::move(bytes)) {
    input.fill();
    const std::string_view window = input.window();
    if (window.find('\0') != std::string_view::npos) throw FileError("is neither LAS, LAZ, PLY nor text");
    const Sample sample(withoutByteOrderMark(window), window.size() < ByteInput::CAPACITY);
    chooseColumns(sample, options.columns);
    checkRows(sample);
    hasColour = hasChannel(columns.channels, RED);
    // A point takes six bytes or more; whoever reserves memory should not believe a count beyond that.
    if (sample.count <= input.size() / 6) announced = sample.count;
}

void TextReader::chooseColumns(const Sample& sample, const std::string& names) {
    TextColumns named = TextColumns::fromHeaderLine(sample.lastComment);
    const auto firstFields =
        sample.rows.empty() ? std::vector<std::string_view>() : splitFields(withoutByteOrderMark(sample.rows[0].line));
    if (!firstFields.empty() && !numberOfField(firstFields[0])) {
        if (TextColumns inLine = TextColumns::fromHeaderLine(sample.rows[0].line); !inLine.empty()) {
            named = std::move(inLine);
            headingLine = sample.rows[0].number;
        }
    }
    if (!names.empty()) {
        columns = TextColumns::fromNames(names);
    } else if (!named.empty()) {
        columns = std::move(named);
    } else {
        std::vector<std::vector<std::string_view>> rows;
        for (const Sample::Row& row : sample.rows) rows.push_back(splitFields(row.line));
        columns = TextColumns::guess(rows);
    }
}

// Why a line does not parse, for people.
static std::string explainLine(std::string_view line, const std::vector<Channel>& channels) {
    const auto fields = splitFields(line);
    const size_t needed = std::max<size_t>(channels.size(), 3);
    for (size_t i = 0; i < std::min(fields.size(), needed); ++i) {
        if ((i < channels.size() && channels[i] == SKIPPED) || numberOfField(fields[i])) continue;
        std::string quoted;
        for (char c : fields[i].substr(0, 40)) quoted += c >= ' ' && c < '\x7f' ? c : '?';
        return "\"" + quoted + "\" is not a number";
    }
    return std::to_string(fields.size()) + " values where " + std::to_string(needed) + " are needed";
}

// Makes sure that the columns fit what is there, and looks at the colours.
void TextReader::checkRows(const Sample& sample) {
    size_t parsed = 0;
    bool hasFraction = false;
    bool isWithinOne = true;
    for (const Sample::Row& row : sample.rows) {
        ChannelValues values{};
        if (columns.empty() || !parseFields(row.line, columns.channels, values)) continue;
        ++parsed;
        for (Channel colour : {RED, GREEN, BLUE}) {
            hasFraction = hasFraction || values[colour] != std::floor(values[colour]);
            isWithinOne = isWithinOne && values[colour] >= 0 && values[colour] <= 1;
        }
    }
    isUnitColour = hasFraction && isWithinOne;
    if (parsed > 0) return;
    // Columns are named, and no line contradicts that: a file of no points.
    const size_t headings = headingLine > 0 ? 1 : 0;
    if (!columns.empty() && columns.origin == TextColumns::HEADER_LINE && sample.rows.size() == headings &&
        input.window().size() < ByteInput::CAPACITY) {
        return;
    }
    if (sample.rows.size() == headings) throw FileError("line 1: no points in the first mebibyte");
    const Sample::Row& row = sample.rows[headings];
    throw FileError("line " + std::to_string(row.number) + ": " + explainLine(row.line, columns.channels));
}

std::vector<std::string> TextReader::warnings() const {
    const uint64_t count = std::max(badLines, mostBadLines);
    if (count == 0) return {};
    const std::string first = std::to_string(firstBadLine);
    if (count == 1) return {"line " + first + " does not parse and is left out"};
    return {std::to_string(count) + " lines do not parse and are left out, the first of them is line " + first};
}

double TextReader::fractionRead() const {
    if (input.size() == 0) return 0;
    return std::min(1.0, static_cast<double>(input.position()) / static_cast<double>(input.size()));
}

void TextReader::rewind() {
    input.rewind();
    mostBadLines = std::max(badLines, mostBadLines);
    badLines = 0;
    lineNumber = 0;
}

void TextReader::noteBadLine() {
    if (lineNumber == headingLine) return;
    if (badLines == 0) firstBadLine = lineNumber;
    ++badLines;
}

size_t TextReader::decode(std::span<ChannelValues> points) {
    size_t count = 0;
    InputLine line;
    while (count < points.size() && input.nextLine(line)) {
        if (++lineNumber == 1) line.text = withoutByteOrderMark(line.text);
        ChannelValues& values = points[count];
        if (parseFields(line.text, columns.channels, values)) {
            if (isUnitColour) {
                for (Channel colour : {RED, GREEN, BLUE}) values[colour] *= 255;
            }
            ++count;
        } else if (line.tooLong || (!isComment(line.text) && !isCountLine(line.text))) {
            noteBadLine();
        }
    }
    return count;
}

} // namespace

std::unique_ptr<PointReader> openText(std::unique_ptr<ByteInput> bytes, const ReadOptions& options) {
    return std::make_unique<TextReader>(std::move(bytes), options);
}

std::unique_ptr<PointReader> openText(const std::string& path, const ReadOptions& options) {
    return openText(std::make_unique<ByteInput>(path), options);
}
