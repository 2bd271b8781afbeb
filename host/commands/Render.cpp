#include "cloud/EngineSession.h"
#include "commands/CheckedBy.h"
#include "commands/Commands.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/OutputPath.h"
#include "support/Text.h"
#include "support/Waiting.h"
#include "support/WidePath.h"
#include "viewer/HeadlessContext.h"
#include "viewer/PointSizing.h"
#include "viewer/RenderTarget.h"
#include "viewer/Scene.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <nimbrel/NimbrelEngine.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <numbers>
#include <numeric>
#include <optional>
#include <system_error>

namespace {
struct RenderOptions {
    std::vector<std::string> files;
    std::string output;
    PixelSize size{1920, 1080};
    std::string eye; // empty for a standard view
    std::string target;
    double fieldOfView = 45; // degrees
    StandardView view = StandardView::ISO;
    std::optional<Colouring> colouring;
    std::optional<float> pointSize;
    bool smooth = false;
    float opacity = 100;
    bool light = false;
    bool force = false;
    int detail = 100;
    std::string clip; // empty for none
    std::string background = "#16191D";
};
} // namespace

static bool hasExtension(const std::string& path, const char* extension) {
    return std::filesystem::path(path).extension() == extension;
}

static std::optional<Colour> parseColour(std::string_view text) {
    if (text.size() != 7 || text[0] != '#') return std::nullopt;
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data() + 1, text.data() + 7, value, 16);
    if (error != std::errc{} || end != text.data() + 7) return std::nullopt;
    return Colour{static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 8 & 255),
                  static_cast<unsigned char>(value & 255)};
}

static glm::dvec3 pointOf(const std::array<double, 3>& values) {
    return {values[0], values[1], values[2]};
}

static void applyOptions(const RenderOptions& options, Scene& scene) {
    if (!options.clip.empty()) {
        const auto box = parseBox(options.clip);
        Box clip;
        clip.include(scene.toScene({box[0], box[1], box[2]}));
        clip.include(scene.toScene({box[3], box[4], box[5]}));
        scene.look.clip = clip;
    }
    scene.look.lit = options.light;
    scene.setColouring(options.colouring.value_or(scene.suggestColouring()));
    for (Scene::Cloud& cloud : scene.clouds) {
        cloud.look.pointSize = options.pointSize.value_or(1.0F);
        cloud.look.opacity = options.opacity;
        cloud.look.detail = options.detail;
    }
}

static Camera placeCamera(const RenderOptions& options, const Scene& scene, PixelSize size) {
    Camera camera;
    camera.setFieldOfView(options.fieldOfView * std::numbers::pi / 180.0);
    if (options.eye.empty()) {
        camera.setView(options.view);
        camera.fit(scene.sample(), size.aspect());
        return camera;
    }
    const glm::dvec3 eye = scene.toScene(pointOf(parsePoint(options.eye)));
    const glm::dvec3 target =
        options.target.empty() ? scene.bounds().centre() : scene.toScene(pointOf(parsePoint(options.target)));
    if (eye == target) throw UsageFailure("--eye and --target are the same point");
    camera.lookAt(eye, target);
    return camera;
}

// Without a size of the user's: draws every point as one pixel, looks how far apart they are, and takes a size that
// closes the gaps.
static float settlePointSize(const RenderOptions& options, Scene& scene, const Camera& camera,
                             const RenderTarget& target) {
    if (options.pointSize) return *options.pointSize;
    target.clear({});
    scene.draw(camera, options.size);
    auto pointSize = static_cast<float>(choosePointSize(target.readCovered(), options.size));
    if (options.light) pointSize += 1.0F; // a gap that colours hide is a pit in the light
    for (Scene::Cloud& cloud : scene.clouds) cloud.look.pointSize = pointSize;
    return pointSize;
}

static double meanBrightness(const RenderTarget& target) {
    const Picture picture = target.read();
    return std::accumulate(picture.rgb.begin(), picture.rgb.end(), 0.0) / static_cast<double>(picture.rgb.size());
}

// Smooth points add up, and how many lie on each other depends on the cloud and the camera: chosen so that the picture
// becomes as bright as it is with plain points.
static void settleExposure(Scene& scene, const Camera& camera, PixelSize size, const RenderTarget& target) {
    constexpr float TRIAL = 1.0F / 24.0F; // low enough for a sum to stay within a byte
    target.clear({});
    scene.draw(camera, size);
    const double plain = meanBrightness(target);
    for (Scene::Cloud& cloud : scene.clouds) cloud.look.smooth = true;
    scene.look.smoothExposure = TRIAL;
    target.clear({});
    scene.draw(camera, size);
    const double smooth = meanBrightness(target);
    if (smooth > 0.0) scene.look.smoothExposure = static_cast<float>(std::clamp(TRIAL * plain / smooth, 0.01, 1.0));
}

// The engine reports nothing about its capture, so the file is looked at: a pixel takes 6 characters or more.
static void checkCapture(const std::string& path, PixelSize size) {
    std::error_code error;
    const uintmax_t bytes = std::filesystem::file_size(path, error);
    const auto least = static_cast<uintmax_t>(size.width) * static_cast<uintmax_t>(size.height) * 6;
    if (error || bytes < least || isInterrupted()) {
        std::filesystem::remove(path, error);
        checkInterrupt();
        throw FileError("cannot be written");
    }
}

static void writePicture(const RenderOptions& options, Scene& scene, const Camera& camera, PixelSize size,
                         const RenderTarget& target) {
    target.clear(parseColour(options.background).value_or(Colour{}));
    if (!hasExtension(options.output, ".ppm")) {
        scene.draw(camera, size);
        const Picture picture = target.read(); // waits for the drawing, which can take seconds
        checkInterrupt();
        writePng(options.output, picture);
        return;
    }
    const std::string part = options.output + ".part";
    const std::wstring path = widePath(part); // must outlive the frame
    savePPMImage(path.c_str());
    scene.draw(camera, size);
    checkCapture(part, size);
    if (std::rename(part.c_str(), options.output.c_str()) != 0) throw FileError("cannot be replaced");
}

static void runRender(const RenderOptions& options, Host& host) {
    if (!hasExtension(options.output, ".png") && !hasExtension(options.output, ".ppm")) {
        throw UsageFailure(options.output + ": pictures end in .png or .ppm");
    }
    checkOutput(options.output, options.files, options.force);
    const PixelSize size = options.size;
    const EngineSession session;
    Scene scene(options.files);
    const HeadlessContext context;
    const RenderTarget target(size);
    applyOptions(options, scene);
    const Camera camera = placeCamera(options, scene, size);
    runAndShow(host.console, "Loading", [&] { scene.loadAll(camera, size); });
    host.console.status("Drawing");
    const float pointSize = settlePointSize(options, scene, camera, target);
    checkInterrupt();
    if (options.smooth) settleExposure(scene, camera, size, target);
    try {
        writePicture(options, scene, camera, size, target);
    } catch (const FileError& error) {
        throw CommandFailure(options.output, error.what());
    }
    host.console.clearStatus();
    const auto points = static_cast<uint64_t>(std::max(scene.loadedPoints(), 0));
    if (points == 0) host.console.note(options.output + ": no point is in the picture");
    if (host.console.isQuiet()) return;
    const std::string drawn =
        grouped(points) + (scene.hasPoints() ? fmt::format(" points, {} pixels each", pointSize) : " cells");
    host.output.print(fmt::format("{}: {}x{}, {}\n", options.output, size.width, size.height, drawn));
}

static void addCameraOptions(CLI::App& command, const std::shared_ptr<RenderOptions>& options) {
    static const std::map<std::string, StandardView> VIEWS = {{"top", StandardView::TOP},
                                                              {"front", StandardView::FRONT},
                                                              {"side", StandardView::SIDE},
                                                              {"iso", StandardView::ISO}};
    CLI::Option* view =
        command
            .add_option_function<std::string>(
                "--view", [options](const std::string& name) { options->view = VIEWS.at(name); },
                "From above, from the south, from the east, or\nfrom the south-west above (iso, the default)")
            ->type_name("top|front|side|iso")
            ->check(CLI::IsMember(&VIEWS));
    CLI::Option* eye = command.add_option("--eye", options->eye, "Where the camera stands, in the files' coordinates")
                           ->type_name("X,Y,Z")
                           ->check(threeNumbers())
                           ->excludes(view);
    command.add_option("--target", options->target, "What it looks at; the middle of the clouds unless told")
        ->type_name("X,Y,Z")
        ->check(threeNumbers())
        ->needs(eye);
    command.add_option("--fov", options->fieldOfView, "Vertical field of view in degrees")
        ->capture_default_str()
        ->type_name("DEGREES")
        ->check(numberFrom(1, 150));
}

static void addLookOptions(CLI::App& command, const std::shared_ptr<RenderOptions>& options) {
    std::map<std::string, Colouring> names;
    std::string choice;
    for (const Colouring colouring : COLOURINGS) {
        names.emplace(nameOf(colouring), colouring);
        choice += (choice.empty() ? "" : "|") + std::string(nameOf(colouring));
    }
    command
        .add_option_function<std::string>(
            "--colour", [options, names](const std::string& name) { options->colouring = names.at(name); },
            "What colours a point; unless told rgb, or\nintensity or height where the clouds lack it")
        ->type_name(choice)
        ->check(CLI::IsMember(names));
    command
        .add_option("--point-size", options->pointSize, "Size of a point in pixels; unless told what closes\nthe gaps")
        ->type_name("N")
        ->check(numberFrom(1, 200));
    command.add_flag("--smooth", options->smooth, "Round points that blend into each other");
    command.add_option("--opacity", options->opacity, "Below 100 clouds become see-through")
        ->capture_default_str()
        ->type_name("PERCENT")
        ->check(numberFrom(0, 100));
    command.add_flag("--light", options->light, "Shade surfaces as under a lamp");
    command.add_option("--lod", options->detail, "Level of detail: 100 is about a point a pixel")
        ->capture_default_str()
        ->type_name("N")
        ->check(wholeNumberFrom(0, 100000));
    command.add_option("--clip", options->clip, "Only points in this box, in the files' coordinates")
        ->type_name("MINX,MINY,MINZ,MAXX,MAXY,MAXZ")
        ->check(sixNumbers());
    command.add_option("--background", options->background, "Colour behind the points")
        ->capture_default_str()
        ->type_name("#RRGGBB")
        ->check(checkedBy(parseColour, "a colour such as #FFFFFF"));
}

void addRenderCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<RenderOptions>();
    CLI::App* command = program.add_subcommand("render", "Draw point files into a picture, without a window");
    command->add_option("FILE", options->files, "The point files, drawn together: paths, cloud:NAME or URLs")
        ->required();
    command->add_option("-o,--output", options->output, "The picture to write: .png, or .ppm")
        ->required()
        ->type_name("FILE");
    command->add_flag("-f,--force", options->force, "Replace the picture if it exists, once the new one is whole");
    command
        ->add_option_function<std::string>(
            "--size", [options](const std::string& text) { options->size = parsePixelSize(text); },
            "Width and height of the picture in pixels")
        ->default_str("1920x1080")
        ->type_name("WIDTHxHEIGHT")
        ->check(pixelSize());
    addCameraOptions(*command, options);
    addLookOptions(*command, options);
    command->footer("Without --eye the camera takes a standard view and goes where all points are in the picture.\n"
                    "A .ppm is the engine's own capture: on black, and before --light.\n\n"
                    "Examples:\n"
                    "  nimbrel render town.opc -o town.png\n"
                    "  nimbrel render town.opc -o plan.png --view top --colour height --light\n"
                    "  nimbrel render town.opc -o street.png --eye 20,5,8 --target 60,60,2 --fov 60");
    command->callback([options, &chosen] { chosen = [options](Host& host) { runRender(*options, host); }; });
}
