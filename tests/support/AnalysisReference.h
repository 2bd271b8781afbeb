#pragma once

#include <array>
#include <cstdint>
#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>
#include <string>
#include <vector>

// The analyses of a cloud spelled out: recursive walks, every triangle against every point of the nodes that it
// reaches, nothing grouped, sorted or kept. Knows the engine by its public header alone.
class AnalysisReference {
public:
    using Corners = std::array<glm::dvec3, 3>;
    struct Node {
        glm::dvec3 low;
        glm::dvec3 high;
        double radius;
        std::vector<glm::dvec3> points; // in the coordinates of the file
        std::vector<int> classes;
        std::vector<bool> selected;
        std::vector<size_t> children;
        [[nodiscard]] glm::dvec3 centre() const { return (low + high) * 0.5; }
    };

    // Reads an open cloud, whose placement is `matrixIn` with the scale in it.
    AnalysisReference(int id, const glm::dmat4& matrixIn);

    // The places of the contacts, sorted, since the engine's order depends on its threads.
    [[nodiscard]] std::vector<glm::dvec3> contactsWith(const AnalysisReference& other) const;
    [[nodiscard]] std::vector<glm::dvec3> contactsWith(const std::vector<Corners>& mesh, const glm::dmat4& placement,
                                                       double scale) const;

    // Sets `classes`, or `selected` and the counts.
    void classify(const std::vector<Corners>& mesh, const glm::dmat4& placement, double thickness);
    void selectBy(const Corners& triangle, double thickness, double cellSize, std::array<int, 2>& counts);

    // Smallest, largest and mean distance and mean deviation; leaves the points by the last triangle selected.
    std::array<double, 4> measure(const std::vector<Corners>& mesh, double thickness);

    std::vector<Node> nodes; // in pre-order

private:
    struct Prism;
    bool collide(size_t a, const AnalysisReference& other, size_t b, std::vector<glm::dvec3>& hits) const;
    void select(size_t index, const Prism& prism, const glm::dvec3& centre, double radius,
                std::vector<glm::dvec3>& found);
    void selectSubtree(size_t index);

    glm::dmat4 matrix;
    bool isStream;
};

// Sorted by x, y and z, as the reference's contacts are.
std::vector<glm::dvec3> sortedPlaces(const double* values, int count);
