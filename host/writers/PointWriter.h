#pragma once

#include "readers/PointReader.h"

#include <array>
#include <memory>
#include <string>

// Writes points to a file, in the order in which they come. Belongs to one thread.
//
// The file appears under its name when finish() returns; until then its bytes are in "PATH.part", which goes away with
// a writer that is not finished. Everything throws FileError when the system refuses, a full disk included; the writer
// is then of no more use.
class PointWriter {
public:
    virtual ~PointWriter() = default;
    virtual void write(const PointBatch& batch) = 0;
    virtual void finish() = 0;
};

// Opens a writer for the format that the extension of `path` names, in either case:
//
// .las  LAS 1.4, point format 7. Colours and intensity, a byte here and 16 bits there, are written as byte * 257, so
//       that 255 becomes 65535 and a reader that scales by a limit of 65535 gets each byte back. Coordinates are
//       rounded to 0.0001, or to the finest power of ten with which `bounds` fits into 32 bits. A point beyond what
//       32 bits reach from there is a FileError; bounds and counts of the header come from the points themselves.
// .ply  PLY 1.0, binary_little_endian: double x, y, z, then uchar red, green, blue, intensity, classification.
// .csv  A line "x,y,z,red,green,blue,intensity,class", then one line a point, with coordinates in the shortest form
//       that gives the same double back.
//
// bounds   smallest x, y, z, then largest, of the points to come; used by .las only
//
// Throws FileError for another extension and when the file cannot be created.
std::unique_ptr<PointWriter> createPoints(const std::string& path, const std::array<double, 6>& bounds);
