#pragma once

#include "render/DrawnCloud.h"
#include "render/ShaderProgram.h"

#include <glm/mat4x4.hpp>

class ClipBox;
struct Shader;

// The program that draws points and voxels, with its uniforms. The operations set uniforms of the program in use.
class PointProgram {
public:
    // Vertex attributes, by location.
    enum Attribute : uint32_t { POSITION, COLOUR, POINT_ATTRIBUTE, VOXEL_OFFSET, VOXEL_SCALE };

    PointProgram();
    void use() const { program.use(); }
    void forget() { program.forget(); }

    // rgbh  256 classes, red, green, blue and hidden of each, 0 to 1
    void setClasses(std::span<const float, 1024> rgbh) const;

    // What a pass of the frame needs: whether it blends, the size of the target in pixels, and the clip distances.
    void setPass(bool blends, int width, int height, float near, float far) const;

    // What stays the same for all nodes of a cloud.
    void setCloud(const DrawnCloud& cloud, const FrameView& view, const Shader& shader) const;

    // `clip` leads from the planes' space to the node's. No clipping for null.
    void setClip(const ClipBox* clip) const;

    void setModelView(const glm::dmat4& modelView) const;

private:
    enum Uniform : size_t {
        MODEL_VIEW,
        VIEW,
        PROJECTION,
        POINT_RATIO,
        POINT_SIZE,
        SMOOTHING,
        RESOLUTION,
        COLOUR_MODE,
        HIDE_SELECTED,
        RED,
        GREEN,
        BLUE,
        BRIGHTNESS,
        CONTRAST,
        OPACITY,
        USE_LAS_COLOURS,
        LAS_COLOURS,
        LIGHT_STATE,
        VECTOR_VALUE,
        DO_CLIP,
        CLIP_PLANES,
        CLIP_COLOUR,
        SHADER,
        REPEAT,
        HUE,
        POINT_ON_PLANE,
        PLANE_NORMAL,
        COLOUR1,
        COLOUR2,
        COLOUR3,
        SHAD_DIST,
        OFFSET,
        BLEND,
        SCALE,
        RANGE,
        STRENGTH,
        BLENDING_PASS,
        DEPTH,
        WIDTH,
        HEIGHT,
        NEAR,
        FAR,
        UNIFORM_COUNT
    };
    static const std::array<const char*, UNIFORM_COUNT> NAMES;

    void set(Uniform uniform, int value) const;
    void set(Uniform uniform, float value) const;
    void set(Uniform uniform, const glm::vec3& value) const;
    void set(Uniform uniform, const glm::vec4& value) const;
    void set(Uniform uniform, const glm::dmat4& value) const; // narrowed to 32 bits
    void setShader(const Shader& shader) const;

    ShaderProgram program;
    std::array<int, UNIFORM_COUNT> locations{};
};
