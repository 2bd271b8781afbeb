#pragma once

#include <string>
#include <string_view>

// Everything but letters, digits and "-._~" as %XX; also what `kept` names.
std::string percentEncode(std::string_view text, std::string_view kept = {});

// The bytes that %XX stand for. A percent sign without two hexadecimal digits stands for itself, and so does a plus.
std::string percentDecode(std::string_view text);

// What follows the first `name` in a query or a path, up to the last `end` behind it; `end` empty for all the rest.
// Names of files travel without escaping, so that their ampersands are their own. Empty if one of the two is missing.
std::string between(std::string_view text, std::string_view name, std::string_view end);

// `bytes` random bytes in hexadecimal. Throws std::runtime_error.
std::string randomHex(size_t bytes);
std::string toHex(std::string_view bytes);
