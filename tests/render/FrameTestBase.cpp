#include "render/FrameTest.h"

FrameTest::FrameTest() {
    context.emplace();
    picture.emplace(WIDTH, HEIGHT);
    view = glm::translate(glm::dmat4(1.0), -eye);
    projection = glm::ortho(-4.0, 4.0, -2.0, 2.0, 1.0, 21.0);
    setForceRender(false);
}

FrameTest::~FrameTest() {
    std::array<unsigned char, 1024> noClasses{};
    setLasClassifications(noClasses.data());
    picture.reset();
}

Bytes FrameTest::record(const TestPoint& point, int originX) {
    Bytes out;
    const int tenThousandths[] = {point.x * 1000 + 500 - originX, point.y * 1000 + 500, point.height * 1000};
    for (const int ordinate : tenThousandths) {
        for (int shift = 16; shift >= 0; shift -= 8) out.push_back(static_cast<unsigned char>(ordinate >> shift));
    }
    out.insert(out.end(), point.attributes.begin(), point.attributes.end());
    return out;
}

PointFileMaker FrameTest::maker(const std::vector<TestPoint>& points) {
    PointFileMaker made(17);
    PointFileMaker::Node node{.pointCount = static_cast<int>(points.size())};
    for (const TestPoint& point : points) node.stored = node.stored + record(point);
    made.add(node);
    return made;
}

int FrameTest::load(const std::vector<TestPoint>& points, const std::string& name) {
    const int id = loadPointCloudFile(dir.writeWide(name, maker(points).make()).c_str());
    EXPECT_NE(-1, id);
    setProperties(id, [](PointCloudProperties&) {});
    return id;
}

void FrameTest::look(int window) {
    setCamera(window, glm::value_ptr(view), glm::value_ptr(projection), glm::value_ptr(eye), 60.0, HEIGHT, true);
}

void FrameTest::frame(int window) {
    picture->bind();
    setRenderCamera(window, glm::value_ptr(view), glm::value_ptr(projection), offscreen.data(), onscreen.data(),
                    lightState, glm::value_ptr(light));
    render();
    EXPECT_EQ(static_cast<GLenum>(GL_NO_ERROR), glGetError());
}

void FrameTest::freshFrame(int window) {
    picture->clear();
    frame(window);
}
