#pragma once

#include "readers/PointReader.h"

class ByteInput;

// Opens a PLY file: ascii, binary_little_endian or binary_big_endian, version 1.0; "-" is standard input.
//
// Points are the records of the first element named "vertex"; other elements, before or behind it, are passed over.
// A vertex needs the properties x, y and z. Channels.h lists the names that colour, intensity and class go by; what
// else a vertex has, lists included, is passed over. Colours of a floating type are taken as 0..1 and multiplied by
// 255; everything else counts as stored.
//
// In ascii files each record stands on a line of its own; blank lines are ignored. A file that ends too early delivers
// the points that are whole, and a warning. Of an ascii file that ends too early the last line counts as whole only if
// a line feed follows it, since the number in which it ends may have been longer.
//
// Throws FileError for a header that is not understood, a vertex without x, y or z, and, while reading, for an ascii
// line that does not parse and a list of negative length.
std::unique_ptr<PointReader> openPly(const std::string& path, const ReadOptions& options);

// The same for bytes of which nothing was consumed yet.
std::unique_ptr<PointReader> openPly(std::unique_ptr<ByteInput> bytes);
