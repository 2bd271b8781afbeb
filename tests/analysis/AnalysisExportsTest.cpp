#include "engine/EngineTest.h"
#include "support/AnalysisReference.h"

#include <algorithm>
#include <cmath>
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>
#include <random>
#include <thread>

namespace {
using Corners = AnalysisReference::Corners;
using Mesh = std::vector<Corners>;

double heightAt(double x, double y) {
    return 3.0 + std::sin(x * 0.7) + std::cos(y * 0.9);
}

// Numbers from 0 to 1 that are the same everywhere.
class Random {
public:
    explicit Random(unsigned seed) : engine(seed) {}
    double operator()() { return static_cast<double>(engine() >> 5) / 134217728.0; }
    double in(double low, double high) { return low + (high - low) * (*this)(); }

private:
    std::mt19937 engine;
};

class Analysis : public EngineTest {
protected:
    // A wavy surface of 20 by 15 units, from `offset` on.
    int makeSurface(int version, int points, double offset = 0.0) {
        Random random(static_cast<unsigned>(points));
        std::vector<double> xyz;
        for (int i = 0; i < points; ++i) {
            const double x = random.in(0, 20);
            const double y = random.in(0, 15);
            for (const double value : {x + offset, y + offset, heightAt(x, y) + random.in(-0.1, 0.1)}) {
                xyz.push_back(value);
            }
        }
        return build(version, xyz, {offset, offset, 0, offset + 20, offset + 15, 8});
    }

    int build(int version, const std::vector<double>& xyz, const std::array<double, 6>& box) {
        const std::wstring path = dir.widePath("built" + std::to_string(++clouds) + ".opc");
        const auto count = static_cast<int>(xyz.size() / 3);
        const std::vector<unsigned char> attributes(xyz.size() / 3 * 5, 7);
        EXPECT_TRUE(createOPC(path.c_str(), box.data(), count, "key", version == 18 ? 1 : 0, 0));
        EXPECT_TRUE(addPoints(xyz.data(), attributes.data(), count));
        indexOPC(0, 0.0001, 0, 1);
        while (getOPCProgress(2) != 0) std::this_thread::yield();
        return loadPointCloudFile(path.c_str());
    }

    static glm::dmat4 place(int id, const glm::dmat4& placement, double scale) {
        setPointCloudPosition(id, glm::value_ptr(placement));
        setScale(id, scale);
        return glm::scale(placement, glm::dvec3(scale));
    }

private:
    int clouds = 0;
};

// Triangles of all sizes near the surface, some on it; degenerate ones, needles, and the same one twice among them.
Mesh mixedMesh(int count, unsigned seed) {
    Random random(seed);
    Mesh mesh;
    for (int i = 0; i < count; ++i) {
        const double size = std::pow(10.0, random.in(-2.5, 1.3));
        const double x = random.in(-1, 21);
        const double y = random.in(-1, 16);
        const glm::dvec3 at(x, y, heightAt(x, y) + random.in(-0.3, 0.3));
        const auto corner = [&] {
            return at + size * glm::dvec3(random.in(-1, 1), random.in(-1, 1), random.in(-0.3, 0.3));
        };
        Corners p{corner(), corner(), corner()};
        if (i % 11 == 3) p[2] = p[i % 2];                                            // no area
        if (i % 11 == 5) p[2] = p[0] + (p[1] - p[0]) * 0.3 + glm::dvec3(1e-7, 0, 0); // a needle
        if (i % 11 == 7 && !mesh.empty()) p = mesh.back();
        mesh.push_back(p);
    }
    mesh.push_back({}); // a degenerate one as the last
    return mesh;
}

const double* valuesOf(const Mesh& mesh) {
    return glm::value_ptr(mesh.front()[0]);
}
int countOf(const Mesh& mesh) {
    return static_cast<int>(mesh.size());
}

const glm::dmat4 TURNED = glm::rotate(glm::translate(glm::dmat4(1.0), {5.0, -3.0, 0.4}), 0.3, {0.2, 0.1, 1.0});
// As far out as a country's grid: what narrows a search down must leave room for rounding.
const glm::dmat4 FAR_AWAY = glm::translate(glm::dmat4(1.0), {674521.5, -5206740.2, 40.4}) * TURNED;

// The classes in the file, through a door of its own.
std::vector<std::vector<int>> classesIn(int id) {
    std::vector<std::vector<int>> classes;
    for (const auto& node : AnalysisReference(id, glm::dmat4(1.0)).nodes) classes.push_back(node.classes);
    return classes;
}

// How many points have another class than they were built with.
int countGraded(const std::vector<std::vector<int>>& classes) {
    std::ptrdiff_t untouched = 0, all = 0;
    for (const auto& node : classes) {
        untouched += std::count(node.begin(), node.end(), 7);
        all += std::ssize(node);
    }
    return static_cast<int>(all - untouched);
}
} // namespace

// Every analysis of a mesh, on both forms of files, with and without a placement, against all triangles times all
// points.
TEST_F(Analysis, OfMeshesEqualsBruteForce) {
    for (const int version : {17, 18}) {
        for (const bool isPlaced : {false, true}) {
            const int id = makeSurface(version, 60000);
            const glm::dmat4 model = isPlaced ? place(id, FAR_AWAY, 1.5) : glm::dmat4(1.0);
            AnalysisReference reference(id, model);
            ASSERT_GT(reference.nodes.size(), 5U);
            const std::string what = std::to_string(version) + (isPlaced ? " placed" : "");
            // The mesh follows the cloud, by a matrix whose fourth row must not count.
            const Mesh mesh = mixedMesh(150, 5);
            glm::dmat4 placement = model;
            placement[3][3] = 7.0;

            const auto expected = reference.contactsWith(mesh, placement, isPlaced ? 1.5 : 1.0);
            ASSERT_GT(expected.size(), 100U) << what;
            std::vector<double> out(3 * (expected.size() + 10), -1.0);
            const auto contacts = [&](int limit) {
                return doMeshCollision(id, limit, out.data(), valuesOf(mesh), countOf(mesh), glm::value_ptr(placement));
            };
            const int count = contacts(static_cast<int>(expected.size()) + 10);
            EXPECT_EQ(expected, sortedPlaces(out.data(), count)) << what;
            EXPECT_EQ(1.0, nimbrelGetAnalysisProgress());
            for (const int limit : {37, 1, 0, -5}) { // never beyond the limit, whatever the threads do
                std::fill(out.begin(), out.end(), -1.0);
                EXPECT_EQ(std::max(limit, 0), contacts(limit));
                EXPECT_EQ(-1.0, out[static_cast<size_t>(3 * std::max(limit, 0))]) << limit;
                for (const glm::dvec3& hit : sortedPlaces(out.data(), std::max(limit, 0))) {
                    EXPECT_TRUE(std::find(expected.begin(), expected.end(), hit) != expected.end());
                }
            }

            reference.classify(mesh, placement, 0.35);
            classifyPointsByDistance(valuesOf(mesh), countOf(mesh), glm::value_ptr(placement), 0.35);
            const auto classes = classesIn(id);
            for (size_t i = 0; i < classes.size(); ++i) {
                EXPECT_EQ(reference.nodes[i].classes, classes[i]) << what << ", node " << i;
            }
            EXPECT_GT(countGraded(classes), 4000) << what;
            // What was written is in the file, and no thickness that is none changes it.
            for (const double thickness : {0.0, -1.0, std::nan("")}) {
                classifyPointsByDistance(valuesOf(mesh), 5, glm::value_ptr(placement), thickness);
            }
            EXPECT_EQ(classes, classesIn(id));
            closePointCloud(id);
        }
    }
}

TEST_F(Analysis, OfTwoCloudsEqualsBruteForce) {
    const int a = makeSurface(17, 60000);
    const int b = makeSurface(18, 45000, 0.3);
    for (const bool isPlaced : {false, true}) {
        const AnalysisReference cloudA(a, isPlaced ? place(a, FAR_AWAY, 0.8) : glm::dmat4(1.0));
        const AnalysisReference cloudB(b, isPlaced ? place(b, glm::rotate(FAR_AWAY, 0.05, {0, 0, 1}), 1.2)
                                                   : glm::dmat4(1.0));
        std::vector<double> out(3 * 10000, -1.0);
        const auto expected = cloudA.contactsWith(cloudB);
        ASSERT_GT(expected.size(), 3U);
        EXPECT_EQ(expected, sortedPlaces(out.data(), doPointCloudCollision(a, b, 10000, out.data())));
        EXPECT_EQ(cloudB.contactsWith(cloudA),
                  sortedPlaces(out.data(), doPointCloudCollision(b, a, 10000, out.data())));
        for (const int limit : {2, 0, -1}) {
            std::fill(out.begin(), out.end(), -1.0);
            EXPECT_EQ(std::max(limit, 0), doPointCloudCollision(a, b, limit, out.data()));
            EXPECT_EQ(-1.0, out[static_cast<size_t>(3 * std::max(limit, 0))]);
        }
    }
    double out[3] = {-1, -1, -1};
    const Mesh mesh = mixedMesh(20, 1);
    const glm::dmat4 identity(1.0);
    EXPECT_EQ(0, doPointCloudCollision(a, a, 1, out)); // one cloud is not two
    EXPECT_EQ(0, doPointCloudCollision(a, 9, 1, out));
    EXPECT_EQ(0, doPointCloudCollision(a, b, 1, nullptr));
    EXPECT_EQ(0, doMeshCollision(9, 1, out, valuesOf(mesh), countOf(mesh), glm::value_ptr(identity)));
    EXPECT_EQ(0, doMeshCollision(a, 1, out, nullptr, countOf(mesh), glm::value_ptr(identity)));
    EXPECT_EQ(0, doMeshCollision(a, 1, out, valuesOf(mesh), -1, glm::value_ptr(identity)));
    setEnabled(b, false);
    EXPECT_EQ(0, doPointCloudCollision(a, b, 1, out));
    EXPECT_EQ(0, doMeshCollision(b, 1, out, valuesOf(mesh), countOf(mesh), glm::value_ptr(identity)));
    EXPECT_EQ(-1, out[0]);
}

// Triangles one by one and as a mesh; the selection that they leave is part of it. A thick prism takes whole nodes.
TEST_F(Analysis, OfSurfacesEqualsBruteForce) {
    for (const bool isPlaced : {false, true}) {
        const int id = makeSurface(17, 60000, 1.0);
        const glm::dmat4 model = isPlaced ? place(id, TURNED, 1.0) : glm::dmat4(1.0);
        AnalysisReference reference(id, model);
        Mesh mesh = mixedMesh(40, 9);
        mesh.resize(mesh.size() - 1);
        for (Corners& p : mesh) {
            for (glm::dvec3& corner : p) corner = glm::dvec3(model * glm::dvec4(corner, 1.0));
        }
        const auto selectionIs = [&](const std::string& what) {
            for (size_t i = 0; i < reference.nodes.size(); ++i) {
                std::vector<char> selected(reference.nodes[i].points.size());
                getNodeSelections(id, static_cast<int>(i), selected.data());
                const auto& expected = reference.nodes[i].selected;
                EXPECT_TRUE(std::equal(expected.begin(), expected.end(), selected.begin())) << what << ' ' << i;
            }
        };
        std::array<int, 2> all{};
        for (const double thickness : {40.0, 9000.0}) {
            for (size_t i = 0; i < mesh.size(); ++i) {
                std::array<int, 2> expected{3, 4};
                std::array<int, 2> counts = expected;
                const double cell = i % 3 == 0 ? 70.0 : 330.0;
                reference.selectBy(mesh[i], thickness, cell, expected);
                selectPointsByTriangle(glm::value_ptr(mesh[i][0]), counts.data(), thickness, cell);
                EXPECT_EQ(expected, counts) << i;
                if (thickness == 40.0) reference.selectBy(mesh[i], thickness, 200.0, all);
            }
            selectionIs("one by one");
        }
        ASSERT_GT(all[0], 1000);
        const double share = 1.0 - static_cast<double>(all[1]) / static_cast<double>(all[0]);
        EXPECT_EQ(share, testSurface(valuesOf(mesh), countOf(mesh), 40.0, 200.0));

        std::array<double, 4> results{};
        calculateErrors(valuesOf(mesh), countOf(mesh), 120.0, results.data());
        EXPECT_EQ(reference.measure(mesh, 120.0), results);
        selectionIs("that of the last triangle");
        closePointCloud(id);
    }
}

TEST_F(Analysis, OfSurfacesTakesOddArguments) {
    const int id = makeSurface(17, 2000);
    const Mesh mesh{{glm::dvec3(0, 0, 3), glm::dvec3(20, 0, 3), glm::dvec3(0, 15, 3)}};
    std::array<double, 4> results{};
    for (const int count : {0, -3}) {
        calculateErrors(valuesOf(mesh), count, 50, results.data());
        EXPECT_EQ((std::array<double, 4>{9999999999.0, 0, 0, 0}), results);
        EXPECT_EQ(0.0, testSurface(valuesOf(mesh), count, 50, 50));
    }
    std::array<int, 2> counts{5, 6};
    for (const double cell : {0.0, -1.0, std::nan(""), 1e-7}) { // the last would be 3e20 cells
        selectPointsByTriangle(valuesOf(mesh), counts.data(), 500, cell);
    }
    selectPointsByTriangle(valuesOf(mesh), nullptr, 500, 100);
    EXPECT_EQ((std::array<int, 2>{5, 6}), counts);
    EXPECT_GT(getSelectedPointsCount(), 10);
    setMask(id, true); // a masked cloud has no part in it
    EXPECT_EQ(0.0, testSurface(valuesOf(mesh), 1, 500, 100));

    // A prism that holds a whole tree, the root of which can't be read: what lies below it counts all the same.
    PointFileMaker maker(17);
    maker.box = {0, 0, 0, 4, 4, 4};
    for (const uint8_t children : {uint8_t{1}, uint8_t{0}}) {
        maker.add({.mask = children, .pointCount = 1, .stored = fixedPoint(5000, 5000, 0, 1)});
    }
    maker.nodes[0].location = int64_t{1} << 40;
    ASSERT_LE(0, loadPointCloudFile(dir.writeWide("unreadable", maker.make()).c_str()));
    calculateErrors(valuesOf(mesh), 1, 1e6, results.data());
    EXPECT_EQ((std::array<double, 4>{3000, 3000, 3000, 0}), results);
    EXPECT_EQ(1, getSelectedPointsCount());
}

// The first part of the mesh is small triangles, each of which reaches a node or two; the rest would take hours.
TEST_F(Analysis, AnAbortEndsAClassificationSoonAndKeepsWhatIsWritten) {
    const int id = makeSurface(17, 60000);
    Mesh mesh;
    for (int i = 0; i < 65536; ++i) {
        const glm::dvec3 at(i % 256 * 0.078, static_cast<double>(i / 256) * 0.058, 3.0);
        mesh.push_back({at, at + glm::dvec3(0.08, 0, 0), at + glm::dvec3(0, 0.06, 0)});
    }
    mesh.resize(400000, {glm::dvec3(-100, -100, 3), glm::dvec3(200, -100, 3), glm::dvec3(0, 200, 3)});
    const glm::dmat4 identity(1.0);
    classifyPointsByDistance(valuesOf(mesh), 1, glm::value_ptr(identity), 0.1); // leaves the progress at 1
    std::thread classification(
        [&] { classifyPointsByDistance(valuesOf(mesh), countOf(mesh), glm::value_ptr(identity), 5.0); });
    while (nimbrelGetAnalysisProgress() < 65535.0 / 400000.0 || nimbrelGetAnalysisProgress() == 1.0) {
        std::this_thread::yield();
    }
    abortPointsByDistance();
    classification.join();
    EXPECT_LT(nimbrelGetAnalysisProgress(), 1.0);
    EXPECT_GT(countGraded(classesIn(id)), 10000);
    classifyPointsByDistance(valuesOf(mesh), 1, glm::value_ptr(identity), 0.1); // the next call is not affected
    EXPECT_EQ(1.0, nimbrelGetAnalysisProgress());
}

// As deep as a damaged tree can be, in both clouds: one pair at most, and no walk on the call stack.
TEST_F(Analysis, OfAVeryDeepTreeEnds) {
    PointFileMaker maker(17);
    constexpr int LEVELS = 200000;
    maker.box = {0, 0, 0, 4, 4, 4};
    for (int i = 0; i < LEVELS; ++i) {
        maker.add({.mask = static_cast<uint8_t>(i + 1 < LEVELS ? 1 : 0),
                   .pointCount = 1,
                   .stored = fixedPoint(5000, 5000, 0, 1)});
    }
    const Bytes file = maker.make();
    const int a = loadPointCloudFile(dir.writeWide("a", file).c_str());
    const int b = loadPointCloudFile(dir.writeWide("b", file).c_str());
    ASSERT_EQ(LEVELS, getNodeCount(b));
    std::vector<double> out(3 * LEVELS);
    EXPECT_EQ(1, doPointCloudCollision(a, b, 10, out.data()));
    const Mesh mesh{{glm::dvec3(0, 0, 0), glm::dvec3(3, 0, 0), glm::dvec3(0, 3, 0)}};
    const glm::dmat4 identity(1.0);
    EXPECT_EQ(LEVELS, doMeshCollision(a, LEVELS, out.data(), valuesOf(mesh), 1, glm::value_ptr(identity)));
    classifyPointsByDistance(valuesOf(mesh), 1, glm::value_ptr(identity), 0.5);
    double xyz[3];
    char colour[5];
    getNodePoints(b, LEVELS - 1, xyz, colour);
    EXPECT_EQ(0, colour[4]);
}
