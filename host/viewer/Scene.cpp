#include "viewer/Scene.h"
#include "cloud/CloudTree.h"
#include "support/Failure.h"
#include "support/Interrupt.h"

#include <glm/ext/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>
#include <nimbrel/NimbrelEngine.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>

// Windows are numbered; a job for window 0 would not be replaced by that of a newer camera.
static constexpr int WINDOW = 1;
static constexpr double DIAGONAL = 100.0; // of the first cloud, in units of the scene
static constexpr size_t MOST_IN_SAMPLE = 20000;

static void addCorners(std::vector<glm::dvec3>& points, const Box& box) {
    for (size_t corner = 0; corner < 8; ++corner) points.push_back(box.corner(corner));
}

Scene::Scene(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) openCloud(path);
    applyClassColours({});
}

void Scene::openCloud(const std::string& path) {
    Cloud cloud;
    cloud.file = std::make_unique<OpenCloud>(path);
    cloud.path = cloud.file->label();
    if (clouds.empty()) {
        const auto box = cloud.file->facts().box;
        const Box inFile{{box[0], box[1], box[2]}, {box[3], box[4], box[5]}};
        const double diagonal = inFile.diagonal();
        origin = inFile.centre();
        unit = diagonal > 0.0 && std::isfinite(diagonal) ? DIAGONAL / diagonal : 1.0;
    }
    placeCloud(cloud);
    clouds.push_back(std::move(cloud));
}

// As if the points lay on the largest side of the box: scans are surfaces, and most of them are no thicker than wide.
static double estimateSpacing(const Box& box, int64_t points) {
    const glm::dvec3 size = box.size();
    const double area = std::max({size.x * size.y, size.x * size.z, size.y * size.z});
    return std::sqrt(area / static_cast<double>(std::max(points, int64_t{1})));
}

void Scene::placeCloud(Cloud& cloud) const {
    const glm::dmat4 place = glm::translate(glm::scale(glm::dmat4(1.0), glm::dvec3(unit)), -origin);
    setPointCloudPosition(cloud.file->id(), glm::value_ptr(place));
    const CloudFacts facts = cloud.file->facts();
    cloud.box.include(toScene({facts.box[0], facts.box[1], facts.box[2]}));
    cloud.box.include(toScene({facts.box[3], facts.box[4], facts.box[5]}));
    cloud.isVoxel = facts.isVoxel();
    cloud.spacing = estimateSpacing(cloud.box, facts.points);
    readSample(cloud);
}

// The points of the coarsest nodes that have any, whole levels at a time so that no part of the cloud is left out:
// large nodes of a compressed file have none.
static PointBatch readCoarsest(const OpenCloud& file, const std::string& path) {
    constexpr size_t ENOUGH = 10000;
    constexpr size_t MOST_NODES = 64;
    std::vector<std::pair<uint32_t, int>> nodes; // level and number
    const CloudTree tree = CloudTree::ofCloud(file.id(), path);
    for (size_t i = 0; i < tree.nodes().size(); ++i) {
        if (tree.nodes()[i].points > 0) nodes.emplace_back(tree.nodes()[i].level, static_cast<int>(i));
    }
    const size_t most = std::min(nodes.size(), MOST_NODES);
    std::partial_sort(nodes.begin(), nodes.begin() + static_cast<ptrdiff_t>(most), nodes.end());
    PointBatch all;
    PointBatch points;
    for (size_t i = 0; i < most; ++i) {
        if (all.size() >= ENOUGH && nodes[i].first != nodes[i - 1].first) break;
        file.readNode(nodes[i].second, points);
        all.positions.insert(all.positions.end(), points.positions.begin(), points.positions.end());
        all.attributes.insert(all.attributes.end(), points.attributes.begin(), points.attributes.end());
    }
    return all;
}

void Scene::readSample(Cloud& cloud) const {
    PointBatch points;
    if (cloud.isVoxel) {
        points.attributes = cloud.file->sampleVoxelColours(MOST_IN_SAMPLE);
    } else {
        points = readCoarsest(*cloud.file, cloud.path);
    }
    const size_t count = points.positions.size() / 3; // a voxel model gives attributes alone
    const size_t every = count / MOST_IN_SAMPLE + 1;
    for (size_t i = 0; i < count; i += every) {
        const double* position = &points.positions[i * 3];
        cloud.sample.push_back(toScene({position[0], position[1], position[2]}));
    }
    if (cloud.sample.empty()) addCorners(cloud.sample, cloud.box);
    std::vector<unsigned char> intensities;
    for (size_t i = 3; i < points.attributes.size(); i += 5) intensities.push_back(points.attributes[i]);
    cloud.intensity = chooseIntensityRange(intensities);
    cloud.bytes = std::move(points.attributes);
}

Box Scene::bounds() const {
    Box all;
    for (const Cloud& cloud : clouds) {
        if (!cloud.look.visible) continue;
        all.include(cloud.box.minimum);
        all.include(cloud.box.maximum);
    }
    return all;
}

bool Scene::hasPoints() const {
    return std::any_of(clouds.begin(), clouds.end(), [](const Cloud& cloud) { return !cloud.isVoxel; });
}

std::vector<glm::dvec3> Scene::sample() const {
    std::vector<glm::dvec3> all;
    for (const Cloud& cloud : clouds) {
        if (!cloud.look.visible) continue;
        std::copy_if(cloud.sample.begin(), cloud.sample.end(), std::back_inserter(all),
                     [this](const glm::dvec3& point) { return !look.clip || look.clip->contains(point); });
    }
    if (all.empty() && look.clip) addCorners(all, *look.clip);
    return all;
}

// Whether the points' bytes from `first` to `last` differ from point to point.
static bool varies(const std::vector<unsigned char>& bytes, size_t first, size_t last) {
    for (size_t point = 5; point + 5 <= bytes.size(); point += 5) {
        for (size_t i = first; i <= last; ++i) {
            if (bytes[point + i] != bytes[i]) return true;
        }
    }
    return false;
}

// Readers give points without colours one and the same black or white.
static bool hasColours(const std::vector<unsigned char>& bytes) {
    if (varies(bytes, 0, 2)) return true;
    return !bytes.empty() && (bytes[0] != bytes[1] || bytes[1] != bytes[2]);
}

Colouring Scene::suggestColouring() const {
    // Of fewer steps there is not much to see; a scale that a single outlier has set leaves no more.
    constexpr float LEAST_RANGE = 16.0F / 255.0F;
    for (const Cloud& cloud : clouds) {
        if (hasColours(cloud.bytes)) return Colouring::RGB;
    }
    for (const Cloud& cloud : clouds) {
        if (varies(cloud.bytes, 3, 3) && cloud.intensity.high - cloud.intensity.low >= LEAST_RANGE) {
            return Colouring::INTENSITY;
        }
    }
    return Colouring::HEIGHT;
}

void Scene::setColouring(Colouring colouring) {
    const bool isRamp = colouring == Colouring::HEIGHT || colouring == Colouring::DISTANCE;
    look.ramp = isRamp ? std::optional(colouring) : std::nullopt;
    for (Cloud& cloud : clouds) {
        if (!isRamp) cloud.look.colouring = colouring;
    }
}

// The engine wants one face of each axis first and then the opposite three, normals outwards.
void Scene::armClip() const {
    if (!look.clip) return;
    std::array<double, 36> planes{};
    for (size_t face = 0; face < 6; ++face) {
        const size_t axis = face % 3;
        planes[face * 6 + axis] = face < 3 ? -1.0 : 1.0;
        const glm::dvec3& point = face < 3 ? look.clip->minimum : look.clip->maximum;
        for (int i = 0; i < 3; ++i) planes[face * 6 + 3 + static_cast<size_t>(i)] = point[i];
    }
    const std::array<float, 4> noTint{};
    activateClipBox(planes.data(), noTint.data(), 0);
}

// A plane and the stretch behind it over which a ramp runs.
namespace {
struct Ramp {
    glm::dvec3 normal;
    glm::dvec3 point;
    double length = 1.0;
};
} // namespace

// Leaves out the few lowest and highest along the normal: a single bird or a point below the ground would otherwise
// press everything else into one colour.
static Ramp chooseRamp(const glm::dvec3& normal, const std::vector<glm::dvec3>& points) {
    if (points.empty()) return {normal, {}, 1.0};
    std::vector<double> heights;
    heights.reserve(points.size());
    for (const glm::dvec3& point : points) heights.push_back(glm::dot(point, normal));
    std::sort(heights.begin(), heights.end());
    const double low = heights[heights.size() / 100];
    const double high = heights[heights.size() - 1 - heights.size() / 100];
    return {normal, normal * low, std::max(high - low, 1e-6)};
}

void Scene::applyRamp(const Camera& camera) const {
    if (!look.ramp) return;
    const bool isHeight = *look.ramp == Colouring::HEIGHT;
    const Ramp ramp = chooseRamp(isHeight ? glm::dvec3(0.0, 0.0, 1.0) : camera.forward(), sample());
    // From dark blue through green to yellow, and from near light to far dark. Both get lighter all the way, so that
    // they also read in grey and for people who see few colours.
    static constexpr float HEIGHTS[3][3] = {{0.20F, 0.22F, 0.53F}, {0.13F, 0.64F, 0.52F}, {0.99F, 0.91F, 0.30F}};
    static constexpr float DISTANCES[3][3] = {{1.00F, 0.93F, 0.62F}, {0.85F, 0.31F, 0.37F}, {0.28F, 0.16F, 0.45F}};
    // The ramp comes after what applyLook sets, so the layers of smooth points have to be allowed for here as well.
    const bool isSmooth = std::any_of(clouds.begin(), clouds.end(),
                                      [](const Cloud& cloud) { return cloud.look.visible && cloud.look.smooth; });
    glm::vec3 colours[3];
    for (size_t i = 0; i < 3; ++i) {
        colours[i] = glm::make_vec3(isHeight ? HEIGHTS[i] : DISTANCES[i]) * (isSmooth ? look.smoothExposure : 1.0F);
    }
    activateShader(glm::value_ptr(ramp.normal), glm::value_ptr(ramp.point), 0.0F, 0.0F, static_cast<float>(ramp.length),
                   0, false, glm::value_ptr(colours[0]), glm::value_ptr(colours[1]), glm::value_ptr(colours[2]));
}

void Scene::applyLooks(const Camera& camera, PixelSize size) const {
    constexpr double OVERLAP = 2.0; // smooth points are discs, and no regular grid
    const double distance = glm::length(camera.eye() - bounds().centre());
    const double pixelsPerUnit = size.height / (2.0 * std::tan(camera.fieldOfView() / 2.0));
    for (const Cloud& cloud : clouds) {
        const int id = cloud.file->id();
        setEnabled(id, cloud.look.visible);
        // As large as the spacing is in space, but in the middle of the scene no larger than was asked for.
        const double pixelsAtUnit =
            std::min(cloud.spacing * OVERLAP * pixelsPerUnit, static_cast<double>(cloud.look.pointSize) * distance);
        applyLook(id, cloud.look, {cloud.intensity, pixelsAtUnit, look.smoothExposure});
    }
}

void Scene::load(const Camera& camera, PixelSize size, bool wait) {
    const glm::dmat4 view = camera.viewMatrix();
    const glm::dmat4 projection = camera.projectionMatrix(size.aspect(), bounds());
    const glm::dvec3 eye = camera.eye();
    applyLooks(camera, size);
    armClip();
    setCamera(WINDOW, glm::value_ptr(view), glm::value_ptr(projection), glm::value_ptr(eye),
              camera.fieldOfView() * 180.0 / std::numbers::pi, size.height, wait);
}

void Scene::loadAll(const Camera& camera, PixelSize size) {
    constexpr int MOST_ROUNDS = 300;
    constexpr int QUIET_ROUNDS = 2;
    int before = -1;
    int quiet = 0;
    for (int round = 0; round < MOST_ROUNDS && quiet < QUIET_ROUNDS; ++round) {
        checkInterrupt();
        load(camera, size, true);
        const int now = loadedPoints();
        quiet = now == before ? quiet + 1 : 0;
        before = now;
    }
}

void Scene::draw(const Camera& camera, PixelSize size) {
    const glm::dmat4 view = camera.viewMatrix();
    const glm::dmat4 projection = camera.projectionMatrix(size.aspect(), bounds());
    const std::array<int, 4> viewport{0, 0, size.width, size.height};
    // From over the beholder's left shoulder.
    const glm::vec3 light = glm::normalize(camera.forward() + camera.right() * 0.5 - camera.up() * 0.6);
    applyLooks(camera, size);
    armClip();
    applyRamp(camera);
    setRenderCamera(WINDOW, glm::value_ptr(view), glm::value_ptr(projection), viewport.data(), viewport.data(),
                    look.lit ? 1 : 0, glm::value_ptr(light));
    render();
}

int Scene::loadedPoints() const {
    return getWindowPointCount(WINDOW);
}

std::optional<Scene::Pick> Scene::pick(const Camera& camera, PixelSize size, const glm::dvec2& pixel) const {
    NimbrelMatrix view{};
    NimbrelMatrix projection{};
    const glm::dmat4 viewMatrix = camera.viewMatrix();
    const glm::dmat4 projectionMatrix = camera.projectionMatrix(size.aspect(), bounds());
    std::copy_n(glm::value_ptr(viewMatrix), 16, view.m);
    std::copy_n(glm::value_ptr(projectionMatrix), 16, projection.m);
    const std::array<int, 4> viewport{0, 0, size.width, size.height};
    std::array<double, 4> result{0.0, 0.0, 0.0, INFINITY};
    Pick pick;
    const int id = findClosestPoint(view, projection, viewport.data(), static_cast<int>(pixel.x),
                                    static_cast<int>(pixel.y), result.data(), pick.bytes.data());
    for (size_t i = 0; i < clouds.size() && id >= 0; ++i) {
        if (clouds[i].file->id() != id) continue;
        pick.cloud = i;
        pick.position = {result[0], result[1], result[2]};
        return pick;
    }
    return std::nullopt;
}
