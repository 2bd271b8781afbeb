#pragma once

#include "readers/PointReader.h"

class ByteInput;

// Opens points written as text, one a line: XYZ, CSV, PTS and the like; "-" is standard input.
//
// Fields stand between blanks, tabs, commas or semicolons. Blank lines and lines that begin with # or // are comments.
// A line of one whole number is a count of points, as PTS has in front of each scan, and is passed over.
//
// What the columns mean is settled once, when the file is opened:
// 1. ReadOptions::columns, where given: x, y, z, r, g, b, intensity, class and skip, separated by commas.
// 2. A header line: the first line that is no comment, or the last comment in front of it, if it names x, y and z. The
//    names that are understood stand in Channels.h; columns of other names are skipped.
// 3. Otherwise a guess from the number of columns and the values of the first 100 lines. Columns "can be colours" if
//    all three hold whole numbers of 0..65535, or numbers of 0..1.
//      3  x y z
//      4  x y z intensity
//      5  x y z intensity class; the class only if its values are whole numbers of 0..255, here and below
//      6  x y z r g b, if these can be colours; else x y z
//      7  x y z intensity r g b (PTS), if the last three can be colours; else x y z r g b intensity, if 4 to 6 can
//      8  x y z r g b intensity class, if 4 to 6 can be colours; else x y z intensity r g b class, if 5 to 7 can
//      9 and more: x y z r g b, if 4 to 6 can be colours; else r g b in the last three, if these can be colours
//    describe() shows what was guessed.
//
// Colours whose first 100 lines lie in 0..1 with at least one fraction among them are multiplied by 255; all else
// counts as stored, and a negative intensity as 0.
//
// Lines that do not parse, or are longer than a mebibyte, are left out; warnings() counts them and names the first.
// Throws FileError "line 1: ..." when nothing in the first mebibyte parses, and for bytes that are not text. Nothing
// but a header line is a file of no points.
std::unique_ptr<PointReader> openText(const std::string& path, const ReadOptions& options);

// The same for bytes of which nothing was consumed yet.
std::unique_ptr<PointReader> openText(std::unique_ptr<ByteInput> bytes, const ReadOptions& options);
