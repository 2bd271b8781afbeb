#pragma once

#include <string>
#include <string_view>

// Diagnostics of the library: plain lines on standard output, without levels. Each call writes whole lines at once, so
// that lines of two threads do not mix. Callable from any thread.
void logText(std::string_view text);

// The reason of the last failure, for nimbrelLastError. Kept for the whole process, since a build fails on a worker
// and is asked for from the host's thread.
void setLastError(std::string message);
std::string lastError();

// Wide strings are UTF-32 here; a code point that UTF-8 cannot carry becomes U+FFFD. A null pointer gives an empty one.
std::string toUtf8(std::wstring_view text);
std::wstring toWide(std::string_view text);
