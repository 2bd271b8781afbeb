#include "remote/ApiAnswer.h"

#include <cstdlib>
#include <stdexcept>

std::optional<picojson::value> parseJSON(const std::string& text) {
    picojson::value value;
    try {
        if (!picojson::parse(value, text).empty()) return std::nullopt;
    } catch (const std::overflow_error&) { // the library's word for such numbers
        return std::nullopt;
    }
    return value;
}

const picojson::value& memberOf(const picojson::value& object, const char* name) {
    static const picojson::value MISSING;
    return object.is<picojson::object>() ? object.get(name) : MISSING;
}

std::optional<std::string> payloadOf(const std::string& body) {
    const std::optional<picojson::value> answer = parseJSON(body);
    if (!answer) return std::nullopt;
    std::string text = memberOf(*answer, "value").to_str();
    return text == "null" ? std::string() : text;
}

std::optional<int64_t> figureIn(const std::string& record, const char* name) {
    const std::optional<picojson::value> account = parseJSON(record);
    if (!account) return std::nullopt;
    const picojson::value& figure = memberOf(*account, name);
    if (figure.is<picojson::null>()) return std::nullopt;
    return std::strtoll(figure.to_str().c_str(), nullptr, 10);
}
