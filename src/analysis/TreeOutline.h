#pragma once

#include "edit/ClipBox.h"

#include <cstdint>
#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>
#include <vector>

class OPCInterface;

// The bounding spheres of a tree in the world, in one block: a walk for each of a hundred thousand triangles goes
// through this and not through the nodes.
class TreeOutline {
public:
    TreeOutline(OPCInterface& root, const glm::dmat4& matrix);

    [[nodiscard]] size_t size() const { return entries.size(); }
    [[nodiscard]] OPCInterface& node(size_t index) const { return *entries[index].node; }

    // The largest coordinate of a point of the tree, roughly and rather too large.
    [[nodiscard]] double farthest() const { return farthestCoordinate; }

    // Calls visit(index) for each node, in pre-order, whose sphere and whose ancestors' spheres do not lie outside.
    template <typename Visit>
    void walk(const ClipBox& region, Visit visit) const {
        for (size_t i = 0; i < entries.size();) {
            const Entry& entry = entries[i];
            if (region.testPlaced(entry.centre, entry.radius) == ClipBox::OUTSIDE) {
                i = entry.next;
            } else {
                visit(i++);
            }
        }
    }

private:
    struct Entry {
        glm::dvec3 centre;
        double radius;
        OPCInterface* node;
        uint32_t next; // behind the subtree
    };
    std::vector<Entry> entries; // in pre-order
    double farthestCoordinate = 0.0;
};
