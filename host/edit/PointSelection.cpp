#include "edit/PointSelection.h"

#include <nimbrel/NimbrelEngine.h>

#include <cstring>
#include <utility>

// The engine disarms its matcher and its painter after every selection, so that both are armed anew for each. It has no
// selection by class; a class is selected by hiding all others for the length of one call.

PointSelection::PointSelection(const OpenCloud& cloudToSelectIn, SelectionFilter filterToUse)
    : cloud(cloudToSelectIn), filter(std::move(filterToUse)) {
    hideClasses(filter.hiddenClasses);
}

void PointSelection::hideClasses(const std::bitset<256>& hidden) const {
    std::array<unsigned char, 1024> table{};
    for (size_t number = 0; number < 256; ++number) table[number * 4 + 3] = hidden.test(number) ? 1 : 0;
    setLasClassifications(table.data());
}

void PointSelection::armMatch() const {
    if (!filter.colour && !filter.intensity) return;
    // The engine counts tolerances in fifths of a step. Differences are whole numbers, so half a step more keeps
    // rounding away from the largest one that passes.
    const auto tolerance = [](int steps) { return (static_cast<float>(steps) + 0.5F) / 5.0F; };
    std::array<unsigned char, 5> target{};
    if (filter.colour) {
        for (size_t i = 0; i < 3; ++i) target[i] = static_cast<unsigned char>((*filter.colour)[i]);
    }
    if (filter.intensity) target[3] = static_cast<unsigned char>((*filter.intensity)[0]);
    activateMatch(filter.colour.has_value(), filter.intensity.has_value(), target.data(),
                  filter.colour ? tolerance((*filter.colour)[3]) : 0.0F,
                  filter.intensity ? tolerance((*filter.intensity)[1]) : 0.0F);
}

// Around every point there can be. A box, since a sphere passes over files that can't be written to.
BoxShape PointSelection::everything() const {
    constexpr double FAR = 9999999999.0;
    const auto box = cloud.facts().box;
    BoxShape shape;
    for (size_t axis = 0; axis < 3; ++axis) {
        shape.numbers[axis] = (box[axis] + box[axis + 3]) / 2.0;
        shape.numbers[3 + axis * 5] = 1.0;
        shape.numbers[6 + axis * 4] = FAR;
    }
    return shape;
}

static NimbrelMatrix matrixOf(const glm::dmat4& matrix) {
    NimbrelMatrix result;
    static_assert(sizeof(result) == sizeof(matrix));
    std::memcpy(&result, &matrix, sizeof(result));
    return result;
}

void PointSelection::walk(const SelectionShape& shape, bool deselect) const {
    if (const auto* box = std::get_if<BoxShape>(&shape)) {
        selectPointsByVolume(box->numbers.data(), 15, deselect, false);
    } else if (const auto* polygon = std::get_if<PolygonShape>(&shape)) {
        selectPointsByScreen(matrixOf(polygon->view), matrixOf(polygon->projection), polygon->viewport.data(),
                             polygon->corners.data(), static_cast<int>(polygon->corners.size() / 2), deselect, false);
    } else if (const auto* sphere = std::get_if<SphereShape>(&shape)) {
        selectPointsByVolume(sphere->numbers.data(), 4, deselect, false);
    } else {
        selectPointsByVolume(everything().numbers.data(), 15, deselect, false);
    }
}

void PointSelection::apply(const SelectionShape& shape, bool deselect) {
    const auto* only = std::get_if<ClassShape>(&shape);
    if (only != nullptr) {
        std::bitset<256> others;
        others.set();
        others.set(only->number, filter.hiddenClasses.test(only->number));
        hideClasses(others);
    }
    armMatch();
    walk(shape, deselect);
    if (only != nullptr) hideClasses(filter.hiddenClasses);
}

void PointSelection::invert() {
    invertSelectedPoints();
    if (filter.hiddenClasses.none()) return;
    hideClasses(~filter.hiddenClasses);
    walk(EverythingShape{}, true);
    hideClasses(filter.hiddenClasses);
}

void PointSelection::clear() {
    clearSelectedPoints();
}

void PointSelection::paint(const SelectionShape& shape, const Paint& paint) {
    armPaint(paint);
    apply(shape, false);
}

PointSelection::Size PointSelection::size() const {
    Size size;
    std::vector<char> marks(UINT16_MAX);
    const int nodes = getNodeCount(cloud.id());
    for (int node = 0; node < nodes; ++node) {
        const int selected = getNodeSelections(cloud.id(), node, marks.data());
        size.points += static_cast<uint64_t>(selected);
        if (selected > 0) ++size.nodes;
    }
    return size;
}
