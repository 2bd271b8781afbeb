#pragma once

#include "edit/ClipBox.h"
#include "edit/PolygonStrips.h"

#include <glm/vec3.hpp>

class PointBlock;
class PolygonSelection;

// The region of a selection, for a whole node by its bounding sphere and for points. Made for one cloud and one walk;
// nothing changes afterwards.
class SelectionShape {
public:
    enum Verdict {
        REJECTED, // no point below can qualify
        UNWANTED, // as far as the sphere tells, none qualifies
        PARTLY,   // its points must be looked at
        WHOLLY    // all qualify
    };

    virtual ~SelectionShape() = default;

    [[nodiscard]] virtual Verdict judge(const glm::dvec3& centre, double radius) const = 0;

    // Whether a node that is not taken whole is looked at: `hasBackup` tells that the history could back it up, `clip`
    // how it lies to the clip box.
    [[nodiscard]] virtual bool goesOn(Verdict verdict, bool hasBackup, ClipBox::Test clip) const;

    virtual void testPoints(PointBlock& block) const = 0;
};

class SphereShape final : public SelectionShape {
public:
    SphereShape(const glm::dvec3& centreIn, double radiusIn) : centre(centreIn), radius(radiusIn) {}
    [[nodiscard]] Verdict judge(const glm::dvec3& nodeCentre, double nodeRadius) const override;
    void testPoints(PointBlock& block) const override;

private:
    const glm::dvec3 centre;
    const double radius;
};

// Six planes as ClipBox has them. A point on a face is inside.
class BoxShape final : public SelectionShape {
public:
    BoxShape(const ClipBox::Planes& planesIn, bool outsideIn) : planes(planesIn), outside(outsideIn) {}
    [[nodiscard]] Verdict judge(const glm::dvec3& centre, double radius) const override;
    void testPoints(PointBlock& block) const override;

private:
    const ClipBox::Planes planes;
    const bool outside;
};

class PolygonShape final : public SelectionShape {
public:
    // The polygon outlives the shape.
    PolygonShape(const PolygonSelection& polygonIn, bool outsideIn);
    [[nodiscard]] Verdict judge(const glm::dvec3& centre, double radius) const override;
    [[nodiscard]] bool goesOn(Verdict verdict, bool hasBackup, ClipBox::Test clip) const override;
    void testPoints(PointBlock& block) const override;

private:
    const PolygonSelection& polygon;
    const PolygonStrips strips;
    const bool outside;
};
