#pragma once

#include "cloud/OpenCloud.h"
#include "edit/Paint.h"
#include "edit/SelectionShape.h"

#include <array>
#include <bitset>
#include <optional>
#include <vector>

// What limits every shape besides its own bounds.
struct SelectionFilter {
    std::optional<std::array<int, 4>> colour;    // red, green, blue, largest difference
    std::optional<std::array<int, 2>> intensity; // intensity, largest difference
    std::bitset<256> hiddenClasses;              // left alone

    [[nodiscard]] bool isAny() const { return colour || intensity || hiddenClasses.any(); }
};

// The selection of the one open cloud, made step by step through the engine.
//
// Needs an EngineSession in which only `cloud` is open. Takes the classes' table of the engine and leaves it with the
// filter's hidden classes. Belongs to one thread.
class PointSelection {
public:
    PointSelection(const OpenCloud& cloudToSelectIn, SelectionFilter filterToUse);

    // Selects what the shape holds and the filter lets through, or takes it out of the selection.
    void add(const SelectionShape& shape) { apply(shape, false); }
    void remove(const SelectionShape& shape) { apply(shape, true); }
    // Selects what is not selected, hidden classes left out.
    void invert();
    void clear();

    // Recolours what the shape holds and the filter lets through, in the file. Selects nothing.
    void paint(const SelectionShape& shape, const Paint& paint);

    struct Size {
        uint64_t points = 0;
        uint64_t nodes = 0; // with at least one selected point
    };
    [[nodiscard]] Size size() const;

private:
    void apply(const SelectionShape& shape, bool deselect);
    void walk(const SelectionShape& shape, bool deselect) const;
    void hideClasses(const std::bitset<256>& hidden) const;
    void armMatch() const;
    [[nodiscard]] BoxShape everything() const;

    const OpenCloud& cloud;
    const SelectionFilter filter;
};
