#include "readers/TextFields.h"

#include <fast_float/fast_float.h>

#include <iterator>

static bool isBlank(char c) {
    return c == ' ' || c == '\t';
}
static bool isMark(char c) {
    return c == ',' || c == ';';
}
static bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

static const char* skipBlanks(const char* text, const char* end) {
    while (text < end && isBlank(*text)) ++text;
    return text;
}

static const char* findSeparator(const char* text, const char* end) {
    while (text < end && !isBlank(*text) && !isMark(*text)) ++text;
    return text;
}

// From the end of a field to the start of the next one.
static const char* skipSeparator(const char* text, const char* end) {
    text = skipBlanks(text, end);
    return text < end && isMark(*text) ? skipBlanks(text + 1, end) : text;
}

// Powers of ten that a double holds exactly.
static constexpr double POWERS[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9, 1e10,
                                    1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20};

// Numbers of up to 15 digits without exponent, nearly all that point files hold: digits and power of ten are both exact
// as doubles, so that their quotient is the correctly rounded result (Clinger 1990). Null for anything else.
static const char* parseShortNumber(const char* text, const char* end, double& value) {
    const bool negative = text < end && *text == '-';
    if (negative) ++text;
    const char* const first = text;
    uint64_t digits = 0;
    while (text < end && isDigit(*text)) digits = digits * 10 + static_cast<uint64_t>(*text++ - '0');
    auto length = text - first;
    std::ptrdiff_t decimals = 0;
    if (text < end && *text == '.') {
        const char* const point = ++text;
        while (text < end && isDigit(*text)) digits = digits * 10 + static_cast<uint64_t>(*text++ - '0');
        decimals = text - point;
        length += decimals;
    }
    // `digits` may have wrapped around by now, but only when the length says so.
    if (length == 0 || length > 15) return nullptr;
    if (text < end && (*text == 'e' || *text == 'E')) return nullptr;
    const double magnitude = static_cast<double>(digits) / POWERS[decimals];
    value = negative ? -magnitude : magnitude;
    return text;
}

const char* parseNumber(const char* text, const char* end, double& value) {
    if (text < end && *text == '+') {
        ++text;
        if (text < end && *text == '-') return nullptr;
    }
    if (const char* rest = parseShortNumber(text, end, value)) return rest;
    const auto [rest, error] = fast_float::from_chars(text, end, value);
    return error == std::errc() ? rest : nullptr;
}

std::optional<double> numberOfField(std::string_view field) {
    double value = 0;
    const char* end = field.data() + field.size();
    if (parseNumber(field.data(), end, value) != end || field.empty()) return {};
    return value;
}

std::optional<uint64_t> wholeNumberOfField(std::string_view field) {
    if (field.empty() || field.size() > 19) return {}; // 19 digits fit, whatever they are
    uint64_t number = 0;
    for (char c : field) {
        if (!isDigit(c)) return {};
        number = number * 10 + static_cast<uint64_t>(c - '0');
    }
    return number;
}

std::vector<std::string_view> splitFields(std::string_view line, size_t limit) {
    std::vector<std::string_view> fields;
    const char* end = line.data() + line.size();
    const char* text = skipBlanks(line.data(), end);
    while (text < end && fields.size() < limit) {
        const char* rest = findSeparator(text, end);
        fields.emplace_back(text, static_cast<size_t>(rest - text));
        text = skipSeparator(rest, end);
    }
    return fields;
}

bool parseFields(std::string_view line, std::span<const Channel> columns, ChannelValues& values) {
    const char* end = line.data() + line.size();
    const char* text = skipBlanks(line.data(), end);
    for (Channel channel : columns) {
        if (channel == SKIPPED) {
            text = findSeparator(text, end);
        } else {
            text = parseNumber(text, end, values[channel]);
            if (!text || (text < end && !isBlank(*text) && !isMark(*text))) return false;
        }
        text = skipSeparator(text, end);
    }
    return true;
}
