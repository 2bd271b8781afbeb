#pragma once

#include "engine/EngineTest.h"
#include "render/HostPicture.h"
#include "support/HeadlessContext.h"

#include <epoxy/gl.h>
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>
#include <optional>

// A point of a test cloud. Places are those of pixels: the camera of FrameTest looks straight down on the box of 8 by 4
// by 2, at 10 pixels a unit.
struct TestPoint {
    int x, y;       // pixel, y from the bottom
    int height = 0; // tenths of a unit above the box's floor
    std::array<unsigned char, 5> attributes{200, 100, 50, 128, 2};
};

// Point files of one node or of a few, and a window that shows them pixel by pixel.
class FrameTest : public EngineTest {
protected:
    static constexpr int WIDTH = 80;
    static constexpr int HEIGHT = 40;

    FrameTest();
    ~FrameTest() override;

    static Bytes record(const TestPoint& point, int originX = 0);

    // A cloud of one node; its id.
    int load(const std::vector<TestPoint>& points, const std::string& name = "cloud");
    static PointFileMaker maker(const std::vector<TestPoint>& points);

    // Points of one pixel, colours as stored; then what `change` alters.
    template <typename Change>
    void setProperties(int id, Change change) {
        PointCloudProperties p;
        p.pointSize = 1.0F;
        p.colourMode = 1;
        change(p);
        setPointCloudProperties(id, p.lodFactor, p.colourMode, p.smoothing, p.useLasColours, p.ignoreClipBox,
                                p.pointSize, p.pointRatio, p.red, p.green, p.blue, p.brightness, p.contrast, p.opacity,
                                p.range, p.strength, p.resolution);
    }

    // The camera of a window looks at everything, and all of it is loaded.
    void look(int window = 0);

    // One frame, on the picture as it stands. Fails when it leaves an OpenGL error.
    void frame(int window = 0);
    // One frame on a fresh picture.
    void freshFrame(int window = 0);

    // The colour of one pixel after a fresh frame.
    Pixel shown(int x, int y) {
        freshFrame();
        return picture->at(x, y);
    }

    std::optional<HeadlessContext> context;
    std::optional<HostPicture> picture;
    glm::dmat4 view;
    glm::dmat4 projection;
    std::array<int, 4> offscreen{0, 0, WIDTH, HEIGHT};
    std::array<int, 4> onscreen{0, 0, WIDTH, HEIGHT};
    int lightState = 0;
    glm::vec3 light{0.0F, 0.0F, -1.0F};
    const glm::dvec3 eye{4.0, 2.0, 12.0};
};
