#pragma once

#include <optional>
#include <string>
#include <string_view>

// The text that the UTF-8 in `bytes` stands for; empty for bytes that are no UTF-8: cut or overlong sequences,
// surrogates, numbers above 10FFFF.
std::optional<std::wstring> decodeUtf8(std::string_view bytes);

// The other way round. What is no character becomes U+FFFD.
std::string encodeUtf8(std::wstring_view text);

// A path of the command line as the library takes it. Throws CommandFailure for a name that is no UTF-8, since the
// library could not name that file to the system.
std::wstring widePath(const std::string& path);
