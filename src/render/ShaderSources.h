#pragma once

// The files of shaders/, embedded at build time.
extern const char* const POINT_VERTEX_SOURCE;
extern const char* const POINT_FRAGMENT_SOURCE;
extern const char* const QUAD_VERTEX_SOURCE;
extern const char* const QUAD_FRAGMENT_SOURCE;
