#pragma once

#include "format/PointRecord.h"

// One point while a file is compiled, in world coordinates: small and trivially copyable, since a build moves every
// point several times.
struct BuildPoint {
    double position[3];
    unsigned char attributes[ATTRIBUTE_BYTES];
};
static_assert(sizeof(BuildPoint) == 32);
