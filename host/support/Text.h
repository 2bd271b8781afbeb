#pragma once

#include <cstdint>
#include <string>

// Numbers as people read them.

// With thousands separators: 1,234,567.
std::string grouped(uint64_t number);

// A number of things, by the word for one of them: "1 point", "1,234 points".
std::string counted(uint64_t number, const char* thing);

// In the largest binary unit of which there is at least one: "812 B", "12.3 MiB".
std::string byteSize(uint64_t bytes);

// "0.84 s", "12 s", "3 min 05 s", "2 h 04 min". Negative and NaN count as 0.
std::string duration(double seconds);

// How many points a second, such as "1,234 points/s" or "4.35 M points/s"; empty when the time is too short to tell.
std::string rate(uint64_t count, double seconds);
