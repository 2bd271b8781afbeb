#pragma once

#include <cstdint>
#include <span>
#include <vector>

// Edits of a node's stored bytes, in memory. Bits beyond a vector's end read as false, and streams end at damaged
// bytes. Fixed records that are edited have a stride with room for their attributes.

// What the host hears of points that an operation passes over because they can't be had.
inline constexpr const char* UNREAD_POINTS = "points of the file can't be read, so that they stay as they are";

// Moves the fixed records that `doomed` names behind the others of the first `count`, each kind in its order, and
// returns how many others there are.
int moveBehind(std::span<unsigned char> records, int stride, int count, const std::vector<bool>& doomed);

// Marks those of a stream's first `count` unmarked points that `doomed` names, and returns how many it does not name.
int markDeleted(std::span<unsigned char> stream, int count, const std::vector<bool>& doomed);

// Which of a stream's first `count` points are marked, unmarked ones counted too.
std::vector<bool> deletedMarks(std::span<unsigned char> stream, int count);

// Sets the marks of a stream's points and clears those beyond; false if that changed nothing.
bool setDeletedMarks(std::span<unsigned char> stream, int count, const std::vector<bool>& marks);

// Sets the class of those of the first `count` points, unmarked in a stream, that `selected` names; false if none.
bool setFixedClass(std::span<unsigned char> records, int stride, int count, const std::vector<bool>& selected,
                   unsigned char value);
bool setStreamClass(std::span<unsigned char> stream, int count, const std::vector<bool>& selected, unsigned char value);

// Whether two sets of records have the same places, in any order. False for records too short for points.
bool haveSamePlaces(std::span<const unsigned char> a, std::span<const unsigned char> b, int stride);

// Gives `saved` the marks of `stream`; false if they are not streams of the same places.
bool takeMarks(std::span<unsigned char> saved, std::span<unsigned char> stream);
