// The exports that select, paint and list points, and those that arm what a selection goes by.
//
// Which clouds take part differs from one to the next: a sphere and a polygon pass over read-only clouds, a box and the
// selection of everything do not. Hosts rely on it.

#include "edit/PolygonSelection.h"
#include "edit/SelectionFilters.h"
#include "engine/EngineState.h"
#include "engine/Participation.h"
#include "nimbrel/NimbrelEngine.h"

#include <glm/geometric.hpp>
#include <glm/gtc/type_ptr.hpp>

namespace {

// What is armed, taken at the start of a selection and disarmed at its end, whatever comes of it.
class ArmedSelection {
public:
    explicit ArmedSelection(bool disarmsPainterIn) : disarmsPainter(disarmsPainterIn) {
        processingAtomic = true; // a frame from now on leaves the clip box armed
        std::lock_guard lock(filterMutex);
        filters = {clipBox, match, classifications, pointEditor};
    }
    ~ArmedSelection() {
        {
            std::lock_guard lock(filterMutex);
            clipBox.setActive(false);
            match.setActive(false, false, nullptr, 0.0F, 0.0F);
            if (disarmsPainter) pointEditor.setActive(false);
        }
        processingAtomic = false;
    }
    ArmedSelection(const ArmedSelection&) = delete;
    ArmedSelection& operator=(const ArmedSelection&) = delete;

    // The filters as they apply to the next cloud. Once a cloud ignored the clip box, it is off for the clouds after
    // it.
    const SelectionFilters& placedOn(const PointCloud& cloud) {
        filters.clip.setTransformation(cloud.getModelMatrix());
        if (filters.clip.isActive()) filters.clip.setActive(cloud.getProperties().ignoreClipBox == 0);
        // Point queries take the transformation that the last operation left.
        std::lock_guard lock(filterMutex);
        clipBox.setTransformation(filters.clip.getTransformation());
        return filters;
    }

    [[nodiscard]] bool hasFilters() const { return filters.clip.isActive() || filters.looksAtPoints(); }

private:
    SelectionFilters filters;
    const bool disarmsPainter;
};

glm::dvec3 placeIn(const PointCloud& cloud, const double* world) {
    return cloud.makeVectorRelative({world[0], world[1], world[2], 1.0});
}

OPCInterface& rootOf(const PointCloud& cloud) {
    return *cloud.getOPC().getRootNode();
}

void selectBySphere(ArmedSelection& armed, const double* data, bool deselect) {
    forEachSelectable([&](PointCloud& cloud) {
        if (!cloud.isWritable()) return;
        // The radius is in the units of the cloud: its scale does not apply.
        rootOf(cloud).selectPointsBySphere(placeIn(cloud, data), data[3], deselect, armed.placedOn(cloud));
    });
}

void selectByBox(ArmedSelection& armed, const double* data, bool deselect, bool outside) {
    forEachSelectable([&](PointCloud& cloud) {
        const glm::dvec3 centre = placeIn(cloud, data);
        std::array<glm::dvec3, 12> planes;
        for (size_t i = 0; i < 3; ++i) {
            const double* axis = data + 3 + 4 * i;
            const glm::dvec3 normal =
                glm::normalize(glm::dvec3(cloud.makeVectorRelative({axis[0], axis[1], axis[2], 0.0})));
            planes[4 * i] = normal;
            planes[4 * i + 1] = centre + normal * axis[3];
            planes[4 * i + 2] = -normal;
            planes[4 * i + 3] = centre - normal * axis[3];
        }
        rootOf(cloud).selectPointsByCube(planes, deselect, outside, armed.placedOn(cloud));
    });
}

void selectEverything(ArmedSelection& armed) {
    if (!armed.hasFilters()) {
        historyTracker.removeTypeFromHistory(HistoryType::SELECTION);
        forEachSelectable([&](PointCloud& cloud) {
            armed.placedOn(cloud);
            rootOf(cloud).selectAllPoints();
        });
        return;
    }
    forEachSelectable([&](PointCloud& cloud) {
        constexpr double EVERYWHERE = 9999999999.0;
        double centre[3];
        rootOf(cloud).getNodeCenter(centre);
        // The centre is the cloud's own and is put through the placement all the same; the radius leaves no difference.
        rootOf(cloud).selectPointsBySphere(placeIn(cloud, centre), EVERYWHERE, false, armed.placedOn(cloud));
    });
}

// The frame of a selection: runs body(ArmedSelection&).
template <typename Select>
void runSelection(bool disarmsPainter, Select body) {
    changePoints([&] {
        ArmedSelection armed(disarmsPainter);
        body(armed);
    });
}

} // namespace

// ---- Selecting

void selectPointsByVolume(const double* data, int count, bool deselect, bool outside) {
    runSelection(true, [&](ArmedSelection& armed) {
        constexpr int SPHERE = 4;
        constexpr int BOX = 15;
        if (!data) return;
        if (count == SPHERE) selectBySphere(armed, data, deselect);
        if (count == BOX) selectByBox(armed, data, deselect, outside);
    });
}

void selectPointsByScreen(NimbrelMatrix view, NimbrelMatrix projection, const int* viewport, const int* points,
                          int count, bool deselect, bool outside) {
    runSelection(true, [&](ArmedSelection& armed) {
        if (count < 3 || isAnyNull(viewport, points)) return;
        const std::span corners(points, 2 * static_cast<size_t>(count));
        forEachSelectable([&](PointCloud& cloud) {
            if (!cloud.isWritable()) return;
            const glm::dmat4 matrix = glm::make_mat4(projection.m) * glm::make_mat4(view.m) * cloud.getModelMatrix();
            const PolygonSelection polygon(matrix, viewport, corners);
            rootOf(cloud).selectPointsByPolygon(polygon, deselect, outside, armed.placedOn(cloud));
        });
    });
}

void selectAllPoints() {
    runSelection(false, selectEverything);
}

void invertSelectedPoints() {
    changePoints([] { forEachSelectable([](PointCloud& cloud) { rootOf(cloud).invertSelectedPoints(); }); });
}

void clearSelectedPoints() {
    changePoints([] {
        historyTracker.removeTypeFromHistory(HistoryType::SELECTION);
        forEachEnabled([](PointCloud& cloud) { rootOf(cloud).clearSelectedPoints(); });
    });
}

void setHideSelectedPoints(int id, bool hide) {
    withCloud(id, [hide](PointCloud& cloud) {
        cloud.changeProperties([hide](PointCloudProperties& properties) { properties.hideSelectedPoints = hide; });
    });
}

// ---- What is selected

int64_t getSelectedPointsCount() {
    return guarded(int64_t{0}, [] {
        std::shared_lock lock(mutex_);
        int64_t count = 0;
        forEachEnabled([&](PointCloud& cloud) { rootOf(cloud).getSelectedPointsCount(&count); });
        return count;
    });
}

void getSelectedPoints(double* positions, char* colours, int64_t start, int64_t count) {
    if (isAnyNull(positions, colours)) return;
    guarded(0, [=] {
        std::shared_lock lock(mutex_);
        PointListing listing{positions, colours, start, count};
        forEachEnabled([&](PointCloud& cloud) {
            const int64_t first = listing.written;
            rootOf(cloud).getSelectedPoints(listing);
            const glm::dmat4 placement = cloud.getModelMatrix();
            for (double* p = positions + 3 * first; p != positions + 3 * listing.written; p += 3) {
                const glm::dvec4 world = placement * glm::dvec4(p[0], p[1], p[2], 1.0);
                for (int axis = 0; axis < 3; ++axis) p[axis] = world[axis];
            }
        });
        return 0;
    });
}

// ---- What a selection goes by

void activateMatch(bool matchColour, bool matchIntensity, const unsigned char* target, float colourTolerance,
                   float intensityTolerance) {
    if ((matchColour || matchIntensity) && isAnyNull(target)) return;
    guarded(0, [=] {
        std::lock_guard lock(filterMutex);
        match.setActive(matchColour, matchIntensity, target, colourTolerance, intensityTolerance);
        return 0;
    });
}

void activateColourProcess(const unsigned char* rgb, int coverage, int strength) {
    if (isAnyNull(rgb)) return;
    guarded(0, [=] {
        std::lock_guard lock(filterMutex);
        pointEditor.setColour(rgb, coverage, strength);
        pointEditor.setActive(true);
        return 0;
    });
}

void activateLuminanceProcess(int amount, bool brightness) {
    guarded(0, [=] {
        std::lock_guard lock(filterMutex);
        pointEditor.setLuminance(amount / 2, brightness);
        pointEditor.setActive(true);
        return 0;
    });
}
