#include "TestFiles.h"
#include "nimbrel/NimbrelEngine.h"
#include "sample/SampleScene.h"
#include "support/WidePath.h"

#include <cmath>
#include <glm/glm.hpp>
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>
#include <random>
#include <thread>

// Selections through the door against a test of every point, one after the other on the same marks: random shapes and
// filters on placed and scaled clouds, in both forms. A case is a cloud's name, empty for the made-up town, and the
// form.

namespace {

using Case = std::pair<std::string, int>;

struct Box {
    glm::dvec3 centre;
    glm::dmat3 axes;
    glm::dvec3 halves;
    [[nodiscard]] bool holds(const glm::dvec3& p) const {
        const glm::dvec3 d = glm::abs(glm::transpose(axes) * (p - centre));
        return d.x <= halves.x && d.y <= halves.y && d.z <= halves.z;
    }
};

NimbrelMatrix byValue(const glm::dmat4& matrix) {
    NimbrelMatrix out;
    std::copy_n(glm::value_ptr(matrix), 16, out.m);
    return out;
}

PointBatch pointsOf(const std::string& name) {
    if (name.empty()) {
        const SampleScene scene(150000, 7);
        PointBatch town;
        town.resize(150000);
        scene.fill(town, 0, 150000);
        return town;
    }
    const std::string path = realCloud(name);
    return path.empty() ? PointBatch{} : readAll(*openPoints(path, {}), 100000);
}

class Selections : public testing::TestWithParam<Case> {
protected:
    Selections() { EXPECT_EQ(1, initEngine("key")); }
    ~Selections() override { closePointCloud(id); }

    void open(const PointBatch& points, int form) {
        std::array<double, 6> box;
        for (size_t axis = 0; axis < 3; ++axis) box[axis] = 1e300, box[axis + 3] = -1e300;
        for (size_t i = 0; i < points.positions.size(); ++i) {
            box[i % 3] = std::min(box[i % 3], points.positions[i]);
            box[i % 3 + 3] = std::max(box[i % 3 + 3], points.positions[i]);
        }
        const std::wstring path = widePath(folder.file("cloud.opc"));
        const auto count = static_cast<int>(points.size());
        ASSERT_TRUE(createOPC(path.c_str(), box.data(), count, "key", form, 0));
        ASSERT_TRUE(addPoints(points.positions.data(), points.attributes.data(), count));
        indexOPC(0, 0.0001, 0, 1);
        while (getOPCProgress(2) != 0) std::this_thread::yield();
        id = loadPointCloudFile(path.c_str());
        ASSERT_GE(id, 0) << nimbrelLastError();
        extent = std::hypot(box[3] - box[0], box[4] - box[1], box[5] - box[2]);
        for (int node = 0; node < getNodeCount(id); ++node) {
            ends.push_back(ends.empty() ? 0 : ends.back());
            ends.back() += static_cast<size_t>(getNodePointCount(id, node));
            places.resize(ends.back());
            attributes.resize(5 * ends.back());
            const size_t first = node == 0 ? 0 : ends[ends.size() - 2];
            if (first == ends.back()) continue;
            getNodePoints(id, node, &places[first].x, &attributes[5 * first]);
        }
        marks.resize(places.size());
    }

    double real(double low, double high) { return std::uniform_real_distribution(low, high)(random); }
    bool chance(int oneIn) { return random() % static_cast<unsigned>(oneIn) == 0; }
    size_t anyPoint() { return random() % places.size(); }
    glm::dvec3 somewhere() { return placement * glm::dvec4(places[anyPoint()], 1.0); } // in the world
    glm::dmat3 turn() {
        return glm::dmat3(glm::rotate(glm::dmat4(1.0), real(0, 7), {real(-1, 1), real(-1, 1), real(0.1, 1)}));
    }

    // Moves the cloud; the scale stays apart from the placement.
    void place() {
        scale = chance(2) ? real(0.2, 5.0) : 1.0;
        placement = glm::translate(glm::dmat4(1.0), {real(-99, 99), real(-99, 99), real(-9, 9)}) * glm::dmat4(turn());
        setPointCloudPosition(id, glm::value_ptr(placement));
        setScale(id, scale);
        placement = glm::scale(placement, glm::dvec3(scale));
    }

    // A box whose half sizes hold in the space of `unit`.
    Box anyBox(double unit) {
        return {somewhere(), turn(), unit * extent * glm::dvec3(real(0.05, 0.6), real(0.05, 0.6), real(0.05, 0.6))};
    }

    // Arms filters by chance, and notes in `takes` what passes them.
    std::vector<char> armFilters() {
        std::vector<char> takes(places.size(), 1);
        if (chance(3)) {
            const Box box = anyBox(scale);
            std::array<glm::dvec3, 12> planes;
            for (int axis = 0; axis < 3; ++axis) {
                const glm::dvec3 reach = box.axes[axis] * box.halves[axis];
                const auto i = static_cast<size_t>(2 * axis);
                planes[i] = box.axes[axis], planes[i + 1] = box.centre + reach;
                planes[i + 6] = -box.axes[axis], planes[i + 7] = box.centre - reach;
            }
            const float tint[4] = {};
            activateClipBox(&planes[0].x, tint, 0);
            const glm::dmat4 toWorld = placement;
            for (size_t i = 0; i < places.size(); ++i) takes[i] &= box.holds(toWorld * glm::dvec4(places[i], 1.0));
        }
        if (chance(3)) {
            const bool colour = chance(2);
            const bool intensity = !colour || chance(2);
            const auto* target = reinterpret_cast<const unsigned char*>(&attributes[5 * anyPoint()]);
            const float tolerance = static_cast<float>(random() % 20);
            activateMatch(colour, intensity, target, tolerance, tolerance);
            for (size_t i = 0; i < 5 * places.size(); ++i) {
                if (i % 5 == 4 || !(i % 5 == 3 ? intensity : colour)) continue;
                const int apart = std::abs(static_cast<unsigned char>(attributes[i]) - target[i % 5]);
                takes[i / 5] &= static_cast<float>(apart) <= 5.0F * tolerance;
            }
        }
        std::array<unsigned char, 1024> classes{};
        const auto hidden = static_cast<unsigned char>(attributes[5 * anyPoint() + 4]);
        if (chance(4)) classes[4 * size_t{hidden} + 3] = 1;
        for (size_t i = 0; i < takes.size() && classes[4 * size_t{hidden} + 3] != 0; ++i) {
            takes[i] &= static_cast<unsigned char>(attributes[5 * i + 4]) != hidden;
        }
        setLasClassifications(classes.data());
        return takes;
    }

    template <typename IsInside>
    void mark(const std::vector<char>& takes, bool deselect, IsInside isInside) {
        for (size_t i = 0; i < places.size(); ++i) {
            if (takes[i] != 0 && isInside(places[i])) marks[i] = !deselect;
        }
    }

    void selectSphere(bool deselect, bool outside) {
        const glm::dvec3 centre = somewhere();
        const double radius = extent * real(0.01, 0.7);
        const double data[] = {centre.x, centre.y, centre.z, radius};
        const auto takes = armFilters();
        selectPointsByVolume(data, 4, deselect, outside); // which has no outside
        const glm::dvec3 local = glm::inverse(placement) * glm::dvec4(centre, 1.0);
        mark(takes, deselect, [&](const glm::dvec3& p) { return glm::distance(p, local) <= radius; });
    }

    void selectBox(bool deselect, bool outside) {
        const Box box = anyBox(1.0);
        double data[15] = {box.centre.x, box.centre.y, box.centre.z};
        for (int axis = 0; axis < 3; ++axis) {
            for (int k = 0; k < 3; ++k) data[3 + 4 * axis + k] = 2.0 * box.axes[axis][k]; // need not be a unit
            data[6 + 4 * axis] = box.halves[axis];
        }
        const auto takes = armFilters();
        selectPointsByVolume(data, 15, deselect, outside);
        const glm::dmat4 back = glm::inverse(placement);
        const Box local{back * glm::dvec4(box.centre, 1.0), glm::dmat3(back) * box.axes * scale, box.halves};
        mark(takes, deselect, [&](const glm::dvec3& p) { return local.holds(p) != outside; });
    }

    // From far away and with nothing beyond the far plane, so that the estimate of a node by its bounding sphere holds.
    void selectPolygon(bool deselect, bool outside) {
        const glm::dvec3 target = somewhere();
        const double distance = 20.0 * extent * scale;
        const glm::dmat4 view = glm::lookAt(target + turn()[0] * distance, target, {0.1, 0.2, 0.9});
        const glm::dmat4 projection = glm::perspective(real(0.01, 0.1), 1.5, distance / 2, 2 * distance);
        const int viewport[] = {7, 11, 1200, 800};
        std::vector<int> corners(2 * (3 + random() % 40));
        for (size_t i = 0; i < corners.size(); ++i) {
            corners[i] = static_cast<int>(random() % static_cast<unsigned>(viewport[2 + i % 2]));
        }
        const auto takes = armFilters();
        selectPointsByScreen(byValue(view), byValue(projection), viewport, corners.data(),
                             static_cast<int>(corners.size() / 2), deselect, outside);
        const glm::dmat4 toScreen = projection * view * placement;
        mark(takes, deselect, [&](const glm::dvec3& p) {
            const glm::dvec4 clip = toScreen * glm::dvec4(p, 1.0);
            const glm::dvec3 screen = glm::dvec3(clip) / clip.w * 0.5 + 0.5;
            const double x = viewport[0] + screen.x * viewport[2];
            const double y = viewport[3] - (viewport[1] + screen.y * viewport[3]);
            bool isInside = false;
            for (size_t i = 0, j = corners.size() - 2; i < corners.size(); j = i, i += 2) {
                const double ax = corners[i], ay = corners[i + 1], bx = corners[j], by = corners[j + 1];
                if ((y <= ay) != (y <= by) && x < ax + (y - ay) * (bx - ax) / (by - ay)) isInside = !isInside;
            }
            return (isInside && screen.z >= 0.0 && screen.z <= 1.0) != outside;
        });
    }

    // Marks by node, their number, and the list in pages of an odd size.
    void compare(const std::string& what) {
        std::vector<char> found(marks.size());
        std::vector<size_t> order;
        for (size_t node = 0; node < ends.size(); ++node) {
            char* out = found.data() + (node == 0 ? 0 : ends[node - 1]);
            (void)getNodeSelections(id, static_cast<int>(node), out);
        }
        ASSERT_TRUE(found == marks) << what;
        for (size_t i = 0; i < marks.size(); ++i) {
            if (marks[i] != 0) order.push_back(i);
        }
        ASSERT_EQ(static_cast<int64_t>(order.size()), getSelectedPointsCount()) << what;
        const size_t page = 1 + order.size() / 3;
        std::vector<glm::dvec3> listed(page);
        std::vector<char> colours(5 * page);
        for (size_t start = 0; start < order.size(); start += page) {
            getSelectedPoints(&listed[0].x, colours.data(), static_cast<int64_t>(start), static_cast<int64_t>(page));
            for (size_t i = start; i < std::min(start + page, order.size()); ++i) {
                const glm::dvec3 expected = placement * glm::dvec4(places[order[i]], 1.0);
                ASSERT_LT(glm::distance(expected, listed[i - start]), 1e-6) << what;
                ASSERT_TRUE(
                    std::equal(&attributes[5 * order[i]], &attributes[5 * order[i]] + 5, &colours[5 * (i - start)]));
            }
        }
    }

    const TemporaryFolder folder;
    std::mt19937 random{5};
    int id = -1;
    double extent = 0;
    double scale = 1;
    glm::dmat4 placement{1.0}; // scale included
    std::vector<size_t> ends;  // of each node's points
    std::vector<glm::dvec3> places;
    std::vector<char> attributes;
    std::vector<char> marks;
};

} // namespace

TEST_P(Selections, AreThoseOfEveryPointTestedByItself) {
    const PointBatch points = pointsOf(GetParam().first);
    if (points.size() == 0) GTEST_SKIP() << "the real clouds are not there";
    open(points, GetParam().second);
    int changing = 0;
    for (int round = 0; round < 24 && !HasFatalFailure(); ++round) {
        if (round % 6 == 0) place();
        const std::vector<char> before = marks;
        const bool deselect = chance(3);
        const bool outside = chance(3);
        const int kind = round % 4;
        if (kind == 0) selectSphere(deselect, outside);
        if (kind == 1) selectBox(deselect, outside);
        if (kind == 2) selectPolygon(deselect, outside);
        if (kind == 3 && !deselect)
            mark(armFilters(), false, [](const glm::dvec3&) { return true; }), selectAllPoints();
        if (kind == 3 && deselect) {
            if (outside) clearSelectedPoints(), marks.assign(marks.size(), 0);
            invertSelectedPoints();
            for (char& each : marks) each = static_cast<char>(1 - each);
        }
        compare("round " + std::to_string(round));
        changing += marks != before ? 1 : 0;
    }
    EXPECT_GE(changing, 12) << "too few of the selections change a mark";
}

static std::vector<Case> cases() {
    std::vector<Case> all;
    for (const char* name : {"", "autzen_trim.laz", "office_rgb.ply", "lone-star.laz", "roofs_rgb.las", "bunny.ply"}) {
        for (const int form : {0, 1}) all.emplace_back(name, form);
    }
    return all;
}
INSTANTIATE_TEST_SUITE_P(Clouds, Selections, testing::ValuesIn(cases()));
