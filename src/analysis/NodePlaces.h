#pragma once

#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>
#include <glm/vec4.hpp>
#include <optional>
#include <vector>

class OPCInterface;

// The places of a node's points in the coordinates of its file, in stored order. None when the node can't be read: an
// analysis passes over it, rather than take its corner for points.
std::optional<std::vector<glm::dvec3>> readPlaces(OPCInterface& node);

// The length to which a matrix stretches a length along Z: how all tests of nodes take a radius into the world.
double placedLength(const glm::dmat4& matrix, double length);

glm::dvec3 centreOf(OPCInterface& node);
