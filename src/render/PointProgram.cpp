#include "render/PointProgram.h"

#include "edit/ClipBox.h"
#include "render/Shader.h"
#include "render/ShaderSources.h"

#include <epoxy/gl.h>
#include <glm/gtc/type_ptr.hpp>

namespace {

// Colours points by a value of their own when not negative. Nothing sets one yet, and the shaders know how.
constexpr float NO_VECTOR_VALUE = -1.0F;

constexpr ShaderProgram::Attribute ATTRIBUTES[] = {{PointProgram::POSITION, "pos"},
                                                   {PointProgram::COLOUR, "color"},
                                                   {PointProgram::POINT_ATTRIBUTE, "inAttribute"},
                                                   {PointProgram::VOXEL_OFFSET, "voffset"},
                                                   {PointProgram::VOXEL_SCALE, "vscale"}};

} // namespace

// In the order of the enumerators.
const std::array<const char*, PointProgram::UNIFORM_COUNT> PointProgram::NAMES = {
    "mvMatrix",      "viewMatrix",   "projectionMatrix",
    "pointRatio",    "pointSize",    "smoothing",
    "resolution",    "rgb",          "hideSelectedPoints",
    "red",           "green",        "blue",
    "brightness",    "contrast",     "opacity",
    "useLasColours", "lasColours",   "lightState",
    "vectorValue",   "doClip",       "clipPlanes",
    "clipColour",    "shader",       "repeat",
    "hue",           "pointOnPlane", "planeNormal",
    "colour1",       "colour2",      "colour3",
    "shadDist",      "offset",       "blend",
    "scale",         "range",        "strength",
    "filtee",        "depth",        "width",
    "height",        "near",         "far"};

PointProgram::PointProgram() : program(POINT_VERTEX_SOURCE, POINT_FRAGMENT_SOURCE, ATTRIBUTES) {
    for (size_t i = 0; i < locations.size(); ++i) locations[i] = program.uniform(NAMES[i]);
}

void PointProgram::set(Uniform uniform, int value) const {
    glUniform1i(locations[uniform], value);
}

void PointProgram::set(Uniform uniform, float value) const {
    glUniform1f(locations[uniform], value);
}

void PointProgram::set(Uniform uniform, const glm::vec3& value) const {
    glUniform3fv(locations[uniform], 1, glm::value_ptr(value));
}

void PointProgram::set(Uniform uniform, const glm::vec4& value) const {
    glUniform4fv(locations[uniform], 1, glm::value_ptr(value));
}

void PointProgram::set(Uniform uniform, const glm::dmat4& value) const {
    const glm::mat4 narrow(value);
    glUniformMatrix4fv(locations[uniform], 1, GL_FALSE, glm::value_ptr(narrow));
}

void PointProgram::setClasses(std::span<const float, 1024> rgbh) const {
    glUniform4fv(locations[LAS_COLOURS], 256, rgbh.data());
}

void PointProgram::setPass(bool blends, int width, int height, float near, float far) const {
    set(BLENDING_PASS, blends ? 1 : 0);
    set(DEPTH, 1);
    set(WIDTH, static_cast<float>(width));
    set(HEIGHT, static_cast<float>(height));
    set(NEAR, near);
    set(FAR, far);
}

void PointProgram::setCloud(const DrawnCloud& cloud, const FrameView& view, const Shader& shader) const {
    const PointCloudProperties& properties = cloud.properties;
    const auto scale = static_cast<float>(cloud.scale);
    set(VIEW, view.view);
    set(PROJECTION, view.projection);
    set(POINT_RATIO, scale * (properties.pointRatio / 5.0F));
    set(POINT_SIZE, properties.pointSize);
    set(SMOOTHING, properties.smoothing != 0 && !cloud.isVoxel() ? 1 : 0);
    set(RESOLUTION, properties.resolution);
    set(COLOUR_MODE, properties.colourMode);
    set(HIDE_SELECTED, int{properties.hideSelectedPoints});
    set(RED, properties.red);
    set(GREEN, properties.green);
    set(BLUE, properties.blue);
    set(BRIGHTNESS, properties.brightness);
    set(CONTRAST, properties.contrast);
    set(OPACITY, cloud.isVoxel() ? 100.0F : properties.opacity);
    set(USE_LAS_COLOURS, int{properties.useLasColours});
    set(LIGHT_STATE, view.lightState);
    set(VECTOR_VALUE, NO_VECTOR_VALUE);
    set(SCALE, scale);
    set(RANGE, properties.range);
    set(STRENGTH, properties.strength);
    setShader(shader);
    setClip(nullptr);
}

void PointProgram::setShader(const Shader& shader) const {
    set(SHADER, shader.active ? 1 : 0);
    set(REPEAT, shader.repeat);
    set(HUE, shader.hue ? 1 : 0);
    set(POINT_ON_PLANE, shader.pointOnPlane);
    set(PLANE_NORMAL, shader.planeNormal);
    set(COLOUR1, shader.colour1);
    set(COLOUR2, shader.colour2);
    set(COLOUR3, shader.colour3);
    set(SHAD_DIST, shader.shadDist);
    set(OFFSET, shader.offset);
    set(BLEND, shader.blend);
}

void PointProgram::setClip(const ClipBox* clip) const {
    if (!clip) return set(DO_CLIP, 0);
    // The host's mode is any number; one more than the largest wraps around.
    set(DO_CLIP, static_cast<int>(static_cast<unsigned>(clip->getClipMode()) + 1U));
    std::array<glm::vec4, 6> planes;
    for (int i = 0; i < 6; ++i) planes[static_cast<size_t>(i)] = glm::vec4(clip->getPlaneEquation(i));
    glUniform4fv(locations[CLIP_PLANES], 6, glm::value_ptr(planes[0]));
    const std::array<float, 4>& rgba = clip->getRGB();
    set(CLIP_COLOUR, glm::vec4(rgba[0], rgba[1], rgba[2], rgba[3]) / 255.0F);
}

void PointProgram::setModelView(const glm::dmat4& modelView) const {
    set(MODEL_VIEW, modelView);
}
