#include "support/AnalysisReference.h"

#include <nimbrel/NimbrelEngine.h>

#include <algorithm>
#include <cmath>
#include <glm/glm.hpp>
#include <tuple>

using glm::dvec3;
using glm::dvec4;

// Five faces of a normal and a point; `toPrism` leads from the tested place to them.
struct AnalysisReference::Prism {
    std::array<std::pair<dvec3, dvec3>, 5> faces;
    glm::dmat4 toPrism;
    dvec3 n;
    bool isDegenerate;

    Prism(const Corners& p, const dvec3& c, double t, double sides, const glm::dmat4& matrix)
        : Prism(p, c, t, sides, matrix, glm::normalize(glm::cross(p[2] - p[0], p[1] - p[0]))) {}
    Prism(const Corners& p, const dvec3& c, double t, double sides, const glm::dmat4& matrix, const dvec3& normal)
        : toPrism(matrix), n(normal), isDegenerate(std::isnan(glm::length(n))) {
        const auto side = [&](size_t from, size_t to, size_t at) {
            const dvec3 e = glm::normalize(glm::cross(p[from] - p[to], n));
            return std::pair(e, p[at] + sides * e);
        };
        faces = {std::pair(n, c + t * n), std::pair(-n, c - t * n), side(0, 1, 0), side(2, 0, 2), side(1, 2, 1)};
    }

    // 0 outside, 1 cut, 2 inside
    [[nodiscard]] int test(const dvec3& place, double radius) const {
        const double r = glm::length(toPrism * dvec4(0, 0, radius, 0));
        const dvec3 q(toPrism * dvec4(place, 1));
        bool cut = false;
        for (const auto& [normal, point] : faces) {
            const double d = glm::dot(normal, q - point);
            if (r > std::abs(d))
                cut = true;
            else if (d > r)
                return 0;
        }
        return cut ? 1 : 2;
    }
    [[nodiscard]] bool contains(const dvec3& place) const {
        const dvec3 q(toPrism * dvec4(place, 1));
        return std::none_of(faces.begin(), faces.end(),
                            [&q](const auto& face) { return glm::dot(face.first, q - face.second) > 0.0; });
    }
};

static dvec3 centroid(const AnalysisReference::Corners& p) {
    return (p[0] + p[1] + p[2]) / 3.0;
}

static AnalysisReference::Corners placed(const AnalysisReference::Corners& p, const glm::dmat4& matrix) {
    return {dvec3(matrix * dvec4(p[0], 1)), dvec3(matrix * dvec4(p[1], 1)), dvec3(matrix * dvec4(p[2], 1))};
}

static double reach(const AnalysisReference::Corners& p, const dvec3& c) {
    return std::max({glm::distance(c, p[0]), glm::distance(c, p[1]), glm::distance(c, p[2])});
}

static bool before(const dvec3& a, const dvec3& b) {
    return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
}

std::vector<dvec3> sortedPlaces(const double* values, int count) {
    std::vector<dvec3> places;
    for (int i = 0; i < count; ++i, values += 3) places.emplace_back(values[0], values[1], values[2]);
    std::sort(places.begin(), places.end(), before);
    return places;
}

AnalysisReference::AnalysisReference(int id, const glm::dmat4& matrixIn)
    : matrix(matrixIn), isStream(getVersion(id) == 18) {
    std::vector<unsigned char> tree(static_cast<size_t>(getNodeCount(id)) * 3);
    getTreeStructure(id, reinterpret_cast<char*>(tree.data()));
    double box[6];
    getOrigin(id, box);
    struct Expected {
        dvec3 low, high;
        size_t parent;
    };
    std::vector<Expected> expected{{{box[0], box[1], box[2]}, {box[3], box[4], box[5]}, 0}};
    for (size_t i = 0; i * 3 < tree.size(); ++i) {
        const Expected at = expected.back();
        expected.pop_back();
        if (i > 0) nodes[at.parent].children.push_back(i);
        Node node{at.low, at.high, 0, {}, {}, {}, {}};
        const dvec3 side = at.high - at.low;
        node.radius = double{static_cast<float>(std::sqrt(side.x * side.x + side.y * side.y + side.z * side.z) * 0.5)};
        const unsigned mask = tree[i * 3];
        const int axis = mask & 4 ? 0 : mask & 8 ? 1 : 2;
        Expected first{at.low, at.high, i};
        Expected second = first;
        first.high[axis] = second.low[axis] = (at.low[axis] + at.high[axis]) * 0.5;
        if (mask & 2) expected.push_back(second);
        if (mask & 1) expected.push_back(first);
        const auto count = static_cast<size_t>(getNodePointCount(id, static_cast<int>(i)));
        std::vector<double> xyz(count * 3);
        std::vector<char> colours(count * 5);
        getNodePoints(id, static_cast<int>(i), xyz.data(), colours.data());
        for (size_t k = 0; k < count; ++k) {
            node.points.emplace_back(xyz[k * 3], xyz[k * 3 + 1], xyz[k * 3 + 2]);
            node.classes.push_back(static_cast<unsigned char>(colours[k * 5 + 4]));
        }
        node.selected.resize(count);
        nodes.push_back(std::move(node));
    }
}

bool AnalysisReference::collide(size_t a, const AnalysisReference& other, size_t b, std::vector<dvec3>& hits) const {
    const Node& nodeA = nodes[a];
    const Node& nodeB = other.nodes[b];
    const dvec4 centreB = other.matrix * dvec4(nodeB.centre(), 1);
    const double radiusB = glm::length(other.matrix * dvec4(0, 0, nodeB.radius, 0));
    const double radiusA = glm::length(matrix * dvec4(0, 0, nodeA.radius, 0));
    if (glm::distance(matrix * dvec4(nodeA.centre(), 1), centreB) > radiusA + radiusB) return false;
    bool any = false;
    for (const size_t child : nodeA.children) any |= collide(child, other, b, hits);
    if (any) return true;
    for (const size_t child : nodeB.children) any |= collide(a, other, child, hits);
    if (any) return true;
    const dvec3 sideA = nodeA.high - nodeA.low;
    const dvec3 sideB = nodeB.high - nodeB.low;
    const double t = (sideA.x + sideA.y + sideA.z) / 3 / 75.0 + (sideB.x + sideB.y + sideB.z) / 3 / 75.0;
    const double contact = glm::length(matrix * dvec4(0, 0, t, 0));
    for (size_t i = 0; i < nodeA.points.size(); i += 25) {
        const dvec4 q = matrix * dvec4(nodeA.points[i], 1);
        if (!(radiusB > glm::distance(q, centreB))) continue;
        for (size_t j = 0; j < nodeB.points.size(); j += 25) {
            if (!(contact > glm::length(other.matrix * dvec4(nodeB.points[j], 1) - q))) continue;
            hits.emplace_back(q);
            return true;
        }
    }
    return true;
}

std::vector<dvec3> AnalysisReference::contactsWith(const AnalysisReference& other) const {
    std::vector<dvec3> hits;
    collide(0, other, 0, hits);
    std::sort(hits.begin(), hits.end(), before);
    return hits;
}

// Calls use(node) for each node whose sphere, and whose ancestors' spheres, the prism does not leave outside.
template <typename Nodes, typename Prism, typename Use>
static void reachNodes(Nodes& nodes, size_t index, const Prism& prism, const Use& use) {
    if (prism.isDegenerate || prism.test(nodes[index].centre(), nodes[index].radius) == 0) return;
    use(nodes[index]);
    for (const size_t child : nodes[index].children) reachNodes(nodes, child, prism, use);
}

std::vector<dvec3> AnalysisReference::contactsWith(const std::vector<Corners>& mesh, const glm::dmat4& placement,
                                                   double scale) const {
    std::vector<dvec3> hits;
    for (const Corners& triangle : mesh) {
        const Corners p = placed(triangle, placement);
        const dvec3 c(placement * dvec4(centroid(triangle), 1));
        const Prism prism(p, c, std::min(scale * 0.01, reach(p, c) * 0.1 * scale), 0.0, matrix);
        reachNodes(nodes, 0, prism, [&](const Node& node) {
            for (const dvec3& point : node.points) {
                if (node.children.size() != 2 && prism.contains(point)) hits.emplace_back(matrix * dvec4(point, 1));
            }
        });
    }
    std::sort(hits.begin(), hits.end(), before);
    return hits;
}

void AnalysisReference::classify(const std::vector<Corners>& mesh, const glm::dmat4& placement, double thickness) {
    for (const Corners& triangle : mesh) {
        const dvec3 c(placement * dvec4(centroid(triangle), 1));
        const Prism prism(placed(triangle, placement), c, thickness, 0.0, matrix);
        const dvec3 middle = (prism.faces[0].second + prism.faces[1].second) / 2.0;
        reachNodes(nodes, 0, prism, [&](Node& node) {
            for (size_t i = 0; i < node.points.size(); ++i) {
                dvec3 place = node.points[i];
                // Of the stream the engine takes the coordinates that the file has, before they are rounded to 32 bits.
                for (int axis = 0; isStream && axis < 3; ++axis) {
                    place[axis] = std::round((place[axis] - node.low[axis]) / 0.0001) * 0.0001 + node.low[axis];
                }
                if (!prism.contains(place)) continue;
                const double d = glm::dot(prism.n, dvec3(matrix * dvec4(place, 1)) - middle);
                node.classes[i] = static_cast<int>((isStream ? 15.0 : 255.0) * (std::abs(d) / thickness));
            }
        });
    }
}

void AnalysisReference::selectSubtree(size_t index) {
    nodes[index].selected.assign(nodes[index].points.size(), true);
    for (const size_t child : nodes[index].children) selectSubtree(child);
}

void AnalysisReference::select(size_t index, const Prism& prism, const dvec3& centre, double radius,
                               std::vector<dvec3>& found) {
    Node& node = nodes[index];
    const double d = glm::distance(node.centre(), centre);
    const int k = prism.test(node.centre(), node.radius);
    if (k == 0 || radius + node.radius < d) return;
    if (k == 2 && radius >= d + node.radius) {
        selectSubtree(index);
        found.insert(found.end(), node.points.begin(), node.points.end());
        return;
    }
    for (size_t i = 0; i < node.points.size(); ++i) {
        if (glm::distance(node.points[i], centre) > radius || !prism.contains(node.points[i])) continue;
        node.selected[i] = true;
        found.push_back(node.points[i]);
    }
    for (const size_t child : node.children) select(child, prism, centre, radius, found);
}

void AnalysisReference::selectBy(const Corners& p, double thickness, double cellSize, std::array<int, 2>& counts) {
    const double t = thickness * 0.001;
    const double g = cellSize * 0.001;
    const dvec3 c = centroid(p);
    const Prism prism(p, c, t, t, matrix);
    if (prism.isDegenerate) return;
    std::vector<dvec3> found;
    select(0, prism, dvec3(glm::inverse(matrix) * dvec4(c, 1)), reach(p, c) + 2 * t, found);
    if (found.empty() || cellSize <= 0.0) return;
    const dvec3 w = -prism.n;
    const dvec3 s = glm::normalize(glm::cross(w, p[0] - c));
    const dvec3 v = glm::cross(s, w);
    const auto local = [&](const dvec3& q) {
        return dvec3(glm::dot(s, q - c), glm::dot(v, q - c), -glm::dot(w, q - c));
    };
    const Corners flat{local(p[0]), local(p[1]), local(p[2])};
    const Prism cellPrism(flat, local(c), t, t, matrix, dvec3(0, 0, 1));
    const dvec3 low = glm::min(flat[0], glm::min(flat[1], flat[2]));
    const dvec3 high = glm::max(flat[0], glm::max(flat[1], flat[2]));
    const auto columns = static_cast<int64_t>(std::ceil((high.x - low.x) / g));
    const auto cellAt = [&](double x, double y) {
        return static_cast<int64_t>((x - low.x) / g) + static_cast<int64_t>((y - low.y) / g) * columns;
    };
    std::vector<int64_t> cells;
    for (double x = low.x; x < high.x; x += g) {
        for (double y = low.y; y < high.y; y += g) {
            if (cellPrism.test({x, y, 0}, g) != 0) cells.push_back(cellAt(x, y));
        }
    }
    std::sort(cells.begin(), cells.end());
    counts[0] += static_cast<int>(cells.size());
    for (const dvec3& q : found) {
        const auto cell = std::lower_bound(cells.begin(), cells.end(), cellAt(local(q).x, local(q).y));
        if (cell != cells.end() && *cell == cellAt(local(q).x, local(q).y)) cells.erase(cell);
    }
    counts[1] += static_cast<int>(cells.size());
}

std::array<double, 4> AnalysisReference::measure(const std::vector<Corners>& mesh, double thickness) {
    std::array<double, 4> results{9999999999.0, 0, 0, 0};
    double total = 0;
    for (const Corners& p : mesh) {
        const dvec3 m = glm::normalize(glm::cross(p[1] - p[0], p[2] - p[0]));
        std::array<int, 2> unused{};
        for (Node& node : nodes) node.selected.assign(node.points.size(), false);
        selectBy(p, thickness, 0.0, unused);
        std::vector<double> errors;
        for (const Node& node : nodes) {
            for (size_t i = 0; i < node.points.size(); ++i) {
                const dvec3 place(matrix * dvec4(node.points[i], 1));
                if (node.selected[i]) errors.push_back(std::abs(glm::dot(m, p[0] - place)) * 1000.0);
            }
        }
        if (errors.empty()) continue;
        const auto count = static_cast<double>(errors.size());
        double sum = 0, squares = 0;
        for (const double e : errors) {
            sum += e;
            results = {std::min(results[0], e), std::max(results[1], e), results[2] + e, results[3]};
        }
        for (const double e : errors) squares += (e - sum / count) * (e - sum / count);
        results[3] += std::sqrt(squares / count);
        total += count;
    }
    if (total > 0)
        results = {results[0], results[1], results[2] / total, results[3] / static_cast<double>(mesh.size())};
    return results;
}
