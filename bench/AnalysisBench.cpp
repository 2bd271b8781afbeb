// Meshes of 1,000 and 100,000 triangles against a cloud of 20 million points, and two such clouds that touch at one
// place, with the nodes that are read for a triangle.
//
//     AnalysisBench [POINTS [FOLDER]]

#include "analysis/AnalysisRun.h"
#include "analysis/CollisionHits.h"
#include "analysis/TrianglePrism.h"
#include "format/FileMemoryMap.h"
#include "nimbrel/NimbrelEngine.h"
#include "stream/OPC.h"
#include "support/TempDir.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>

namespace {

constexpr double WIDTH = 400.0;
const glm::dmat4 IDENTITY(1.0);

// Of a period that WIDTH holds a whole number of times, so that the two clouds meet.
double heightAt(double x, double y) {
    return 20.0 + 6.0 * std::sin(x * 0.078539816339744831) + 4.0 * std::cos(y * 0.08);
}

// A file that counts the nodes that are read from it.
class CountingFile final : public PointCloudFile {
public:
    bool isReadOnly() override { return file.isReadOnly(); }
    void openFile(const std::wstring& path, bool writable, long long start) override {
        file.openFile(path, writable, start);
    }
    void closeFile() override { file.closeFile(); }
    void setEnabled(bool enabled) override { file.setEnabled(enabled); }
    bool readData(char* out, long long node, long long location, int size) override {
        ++reads;
        return file.readData(out, node, location, size);
    }
    bool saveData(const char* in, long long location, int size) override { return file.saveData(in, location, size); }
    void readHeader(OPCHeader* header) override { file.readHeader(header); }
    bool isNetwork() override { return false; }
    unsigned char* getTreeStructure() override { return file.getTreeStructure(); }
    int64_t getTreeStructureSize() override { return file.getTreeStructureSize(); }
    bool backs(int64_t location, int64_t size) override { return file.backs(location, size); }

    std::atomic<int64_t> reads{0};

private:
    FileMemoryMap file;
};

struct Cloud {
    std::shared_ptr<CountingFile> file = std::make_shared<CountingFile>();
    std::unique_ptr<OPC> opc;

    explicit Cloud(const std::wstring& path) {
        file->openFile(path, true, 0);
        opc = std::make_unique<OPC>(file);
        if (!opc->isLoaded()) std::abort();
    }
    [[nodiscard]] OPCInterface& root() const { return *opc->getRootNode(); }
    int64_t takeReads() const { return file->reads.exchange(0); }
};

// A surface with some thickness, moved by `shift` along X.
void build(const std::wstring& path, int points, double shift) {
    const double box[6] = {shift, 0, 0, shift + WIDTH, WIDTH, 40};
    if (!createOPC(path.c_str(), box, points, "key", 0, 0)) std::abort();
    std::mt19937 random(1);
    const auto next = [&random] { return static_cast<double>(random() >> 5) / 134217728.0; };
    std::vector<double> xyz;
    constexpr int BATCH = 1000000;
    for (int done = 0; done < points; done += BATCH) {
        const int count = std::min(BATCH, points - done);
        xyz.clear();
        for (int i = 0; i < count; ++i) {
            const double x = WIDTH * next();
            const double y = WIDTH * next();
            xyz.insert(xyz.end(), {x + shift, y, heightAt(x, y) + 0.1 * next()});
        }
        const std::vector<unsigned char> attributes(static_cast<size_t>(count) * 5, 3);
        if (!addPoints(xyz.data(), attributes.data(), count)) std::abort();
    }
    indexOPC(0, 0.0001, 0, 1);
    while (getOPCProgress(2) != 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

// About `count` triangles over the whole surface.
std::vector<Triangle> meshOf(int count) {
    const int side = static_cast<int>(std::sqrt(count / 2.0));
    const auto corner = [side](int i, int j) {
        const double x = WIDTH * i / side;
        const double y = WIDTH * j / side;
        return glm::dvec3(x, y, heightAt(x, y) + 0.05);
    };
    std::vector<Triangle> mesh;
    for (int i = 0; i < side; ++i) {
        for (int j = 0; j < side; ++j) {
            const glm::dvec3 p[4] = {corner(i, j), corner(i + 1, j), corner(i + 1, j + 1), corner(i, j + 1)};
            mesh.push_back({{p[0], p[1], p[2]}, (p[0] + p[1] + p[2]) / 3.0});
            mesh.push_back({{p[0], p[2], p[3]}, (p[0] + p[2] + p[3]) / 3.0});
        }
    }
    return mesh;
}

template <typename Work>
void measure(const std::string& name, const Cloud& cloud, size_t triangles, Work work) {
    cloud.takeReads();
    const auto start = std::chrono::steady_clock::now();
    const size_t found = work();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const int64_t reads = cloud.takeReads();
    std::printf("%-34s %8.2f s  %9zu contacts  %7lld nodes read", name.c_str(), seconds, found,
                static_cast<long long>(reads));
    if (triangles > 0) std::printf(", %.4f a triangle", static_cast<double>(reads) / static_cast<double>(triangles));
    std::printf("\n");
    std::fflush(stdout);
}

void measureMesh(const Cloud& cloud, int triangles) {
    const std::vector<Triangle> mesh = meshOf(triangles);
    const auto prisms = [&mesh](double thickness) {
        return MeshPrisms{mesh.size(), [&mesh, thickness](size_t i, double farthest) {
                              return TrianglePrism::over(mesh[i], thickness, farthest);
                          }};
    };
    const std::string name = std::to_string(mesh.size()) + " triangles";
    measure(name + ", collision", cloud, mesh.size(), [&] {
        CollisionHits hits(1 << 30);
        AnalysisRun run(AnalysisRun::MEASURE);
        cloud.root().doMeshCollisionTest(prisms(0.01), IDENTITY, hits, run);
        return hits.all().size();
    });
    measure(name + ", classification", cloud, mesh.size(), [&] {
        AnalysisRun run(AnalysisRun::CLASSIFICATION);
        cloud.root().classifyPointsByDistance(prisms(0.2), IDENTITY, 0.2, run);
        return size_t{0};
    });
}

} // namespace

int main(int argc, char** argv) {
    const int points = argc > 1 ? std::atoi(argv[1]) : 20000000;
    const TempDir dir;
    const std::string folder = argc > 2 ? argv[2] : dir.path("");
    const auto path = [&folder](const char* name) {
        const std::string whole = folder + "/" + name;
        return std::wstring(whole.begin(), whole.end());
    };
    if (points < 1 || initEngine("bench") != 1) return 1;
    build(path("a.opc"), points, 0.0);
    build(path("b.opc"), points, WIDTH - 0.05); // overlaps by five hundredths of a unit along one edge
    {
        const Cloud a(path("a.opc"));
        const Cloud b(path("b.opc"));
        measureMesh(a, 1000);
        measureMesh(a, 100000);
        measure("two clouds along an edge", a, 0, [&] {
            CollisionHits hits(1 << 30);
            AnalysisRun run(AnalysisRun::MEASURE);
            a.root().doCollisionTest(b.root(), IDENTITY, IDENTITY, hits, run);
            return hits.all().size();
        });
    }
    shutdownEngine();
    return 0;
}
