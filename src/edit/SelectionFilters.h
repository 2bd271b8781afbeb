#pragma once

#include "edit/Classifications.h"
#include "edit/ClipBox.h"
#include "edit/Match.h"
#include "edit/PointEditor.h"

// What else decides about the points of a selection, and what becomes of them: a copy of what the host armed, for one
// operation. The clip box carries the placement of the cloud at hand.
struct SelectionFilters {
    ClipBox clip;
    Match match;
    Classifications classifications;
    PointEditor painter;

    // Points must be looked at, whatever their place.
    [[nodiscard]] bool looksAtPoints() const { return match.isActive() || classifications.isAnyClassHidden(); }
};
