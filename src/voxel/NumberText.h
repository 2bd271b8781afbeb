#pragma once

// Room that putNumber needs.
constexpr int LONGEST_NUMBER = 16;

// Writes a number as a stream does unless told otherwise, that is as printf's %g: six significant digits, no trailing
// zeros, an exponent for what is below 0.0001 or not below 1000000. The exact value is rounded, ties to even. Returns
// the end.
char* putNumber(char* out, double value);
