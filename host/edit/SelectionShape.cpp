#include "edit/SelectionShape.h"
#include "support/Failure.h"
#include "viewer/Camera.h"

#define PICOJSON_USE_INT64
#include <picojson.h>

#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <fstream>
#include <glm/gtc/type_ptr.hpp>
#include <iterator>
#include <numbers>
#include <optional>

const char* const SHAPE_HELP =
    "Shapes, in the coordinates of the file:\n"
    "  all                                    every point\n"
    "  box:MINX,MINY,MINZ,MAXX,MAXY,MAXZ      an upright box, its faces included\n"
    "  box:CX,CY,CZ,AX,AY,AZ,H,BX,..,CZ,H     a turned box: centre, then three times an axis and half the size\n"
    "  sphere:X,Y,Z,RADIUS                    a sphere, its surface included\n"
    "  polygon:FILE                           what a line drawn on a picture surrounds; docs/nimbrel.md has the file\n"
    "  class:N                                the points of one class";

static std::vector<double> parseNumbers(const std::string& text, size_t from) {
    std::vector<double> numbers;
    const char* position = text.data() + from;
    const char* const end = text.data() + text.size();
    for (;;) {
        double value = 0.0;
        const auto [next, error] = std::from_chars(position, end, value);
        if (error != std::errc{} || !std::isfinite(value)) return {};
        numbers.push_back(value);
        if (next == end) return numbers;
        if (*next != ',') return {};
        position = next + 1;
    }
}

[[noreturn]] static void refuse(const std::string& text, const char* reason) {
    throw UsageFailure(fmt::format("'{}' is not a shape: {}", text, reason));
}

static BoxShape boxFrom(const std::string& text, const std::vector<double>& numbers) {
    BoxShape box;
    if (numbers.size() == 15) {
        for (size_t axis = 3; axis < 15; axis += 4) {
            if (std::hypot(numbers[axis], numbers[axis + 1], numbers[axis + 2]) == 0.0) {
                refuse(text, "an axis of the box has no direction");
            }
            if (numbers[axis + 3] < 0.0) refuse(text, "half of a size is negative");
        }
        std::copy(numbers.begin(), numbers.end(), box.numbers.begin());
        return box;
    }
    if (numbers.size() != 6) refuse(text, "a box takes 6 or 15 numbers separated by commas");
    for (size_t axis = 0; axis < 3; ++axis) {
        if (numbers[axis] > numbers[axis + 3]) refuse(text, "a smallest coordinate is above the largest");
        box.numbers[axis] = numbers[axis] / 2.0 + numbers[axis + 3] / 2.0;
        box.numbers[3 + axis * 4 + axis] = 1.0;
        box.numbers[6 + axis * 4] = numbers[axis + 3] / 2.0 - numbers[axis] / 2.0;
    }
    return box;
}

static SphereShape sphereFrom(const std::string& text, const std::vector<double>& numbers) {
    if (numbers.size() != 4) refuse(text, "a sphere takes 4 numbers separated by commas");
    if (numbers[3] < 0.0) refuse(text, "the radius is negative");
    SphereShape sphere;
    std::copy(numbers.begin(), numbers.end(), sphere.numbers.begin());
    return sphere;
}

namespace {
// A polygon's file, with complaints that name it.
class PolygonFile {
public:
    explicit PolygonFile(const std::string& pathToRead) : path(pathToRead) {
        std::ifstream file(path, std::ios::binary);
        if (!file) fail("cannot be read");
        const std::string problem = picojson::parse(root, file);
        if (!problem.empty()) fail("is not JSON");
        if (!root.is<picojson::object>()) fail("is not a polygon: it should hold an object");
    }

    [[noreturn]] void fail(const std::string& problem) const { throw CommandFailure(path, problem); }

    [[nodiscard]] bool has(const char* key) const { return root.contains(key); }

    [[nodiscard]] std::vector<double> numbers(const char* key, size_t count) const {
        const std::vector<double> list = numbersOf(root.get(key));
        if (list.size() != count) fail(fmt::format("'{}' should be {} numbers", key, count));
        return list;
    }

    [[nodiscard]] double number(const char* key, double otherwise) const {
        if (!has(key)) return otherwise;
        if (!root.get(key).is<double>()) fail(fmt::format("'{}' should be a number", key));
        return root.get(key).get<double>();
    }

    [[nodiscard]] std::vector<int> corners() const {
        std::vector<int> list;
        if (!root.get("corners").is<picojson::array>()) fail("'corners' should be a list of pairs x, y");
        for (const picojson::value& corner : root.get("corners").get<picojson::array>()) {
            for (const double value : pair(corner)) list.push_back(pixel(value));
        }
        if (list.size() < 6) fail("'corners' should be at least three pairs x, y");
        return list;
    }

    [[nodiscard]] int pixel(double value) const {
        constexpr double LARGEST = 1 << 24;
        if (!(std::abs(value) <= LARGEST)) fail(fmt::format("{} is no pixel", value));
        return static_cast<int>(std::lround(value));
    }

private:
    [[nodiscard]] static std::vector<double> numbersOf(const picojson::value& value) {
        std::vector<double> list;
        if (!value.is<picojson::array>()) return list;
        for (const picojson::value& entry : value.get<picojson::array>()) {
            if (!entry.is<double>()) return {};
            list.push_back(entry.get<double>());
        }
        return list;
    }

    [[nodiscard]] std::vector<double> pair(const picojson::value& value) const {
        std::vector<double> list = numbersOf(value);
        if (list.size() != 2) fail("a corner is not a pair x, y");
        return list;
    }

    const std::string path;
    picojson::value root;
};
} // namespace

static glm::dvec3 pointOf(const std::vector<double>& numbers) {
    return {numbers[0], numbers[1], numbers[2]};
}

// Either the matrices themselves, or the camera in the words of 'nimbrel render'.
static PolygonShape readPolygon(const std::string& path, const std::array<double, 6>& bounds) {
    const PolygonFile file(path);
    PolygonShape polygon;
    polygon.corners = file.corners();
    if (file.has("view")) {
        polygon.view = glm::make_mat4(file.numbers("view", 16).data());
        polygon.projection = glm::make_mat4(file.numbers("projection", 16).data());
        const std::vector<double> viewport = file.numbers("viewport", 4);
        for (size_t i = 0; i < 4; ++i) polygon.viewport[i] = file.pixel(viewport[i]);
    } else {
        const glm::dvec3 eye = pointOf(file.numbers("eye", 3));
        const glm::dvec3 target = pointOf(file.numbers("target", 3));
        if (eye == target) file.fail("'eye' and 'target' are the same point");
        const std::vector<double> size = file.numbers("size", 2);
        polygon.viewport = {0, 0, file.pixel(size[0]), file.pixel(size[1])};
        const double fieldOfView = file.number("fov", 45.0);
        if (!(fieldOfView >= 1.0 && fieldOfView <= 150.0)) file.fail("'fov' should be 1 to 150 degrees");
        Camera camera;
        camera.setFieldOfView(fieldOfView * std::numbers::pi / 180.0);
        camera.lookAt(eye, target);
        const std::array corners{glm::dvec3(bounds[0], bounds[1], bounds[2]),
                                 glm::dvec3(bounds[3], bounds[4], bounds[5])};
        polygon.view = camera.viewMatrix();
        polygon.projection = camera.projectionMatrix(size[0] / size[1], Box::around(corners));
    }
    if (polygon.viewport[2] < 1 || polygon.viewport[3] < 1) file.fail("the picture has no pixels");
    return polygon;
}

static ClassShape classFrom(const std::string& text, const std::vector<double>& numbers) {
    if (numbers.size() != 1 || numbers[0] < 0.0 || numbers[0] > 255.0 || numbers[0] != std::floor(numbers[0])) {
        refuse(text, "a class is a whole number from 0 to 255");
    }
    return {static_cast<unsigned char>(numbers[0])};
}

SelectionShape parseShape(const std::string& text, const std::array<double, 6>& bounds) {
    if (text == "all") return EverythingShape{};
    const size_t colon = text.find(':');
    const std::string kind = text.substr(0, colon);
    if (colon == std::string::npos) refuse(text, "it should be all, box:.., sphere:.., polygon:.. or class:..");
    if (kind == "polygon") return readPolygon(text.substr(colon + 1), bounds);
    const std::vector<double> numbers = parseNumbers(text, colon + 1);
    if (kind == "box") return boxFrom(text, numbers);
    if (kind == "sphere") return sphereFrom(text, numbers);
    if (kind == "class") return classFrom(text, numbers);
    refuse(text, "it should be all, box:.., sphere:.., polygon:.. or class:..");
}
