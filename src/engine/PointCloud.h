#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>
#include <glm/vec4.hpp>
#include <memory>
#include <mutex>
#include <string>

class OPC;
class PointCloudFile;

// How a cloud is drawn. Plain values: what they mean to the shaders stands with the renderer.
struct PointCloudProperties {
    float pointSize = 2.0F;
    float pointRatio = 5.0F;
    int32_t colourMode = 0;
    int32_t lodFactor = 30;
    uint8_t smoothing = 0;
    uint8_t hideSelectedPoints = 0; // not set by setPointCloudProperties
    std::array<uint8_t, 2> unused{};
    float red = 0.0F, green = 0.0F, blue = 0.0F;
    float brightness = 0.0F, contrast = 0.0F;
    float opacity = 100.0F; // per cent
    float resolution = 0.0F;
    uint8_t useLasColours = 0;
    uint8_t ignoreClipBox = 0;
    uint16_t propertyS0 = 0; // not set by setPointCloudProperties
    float range = 20.0F;
    float strength = 2.0F;
};

// One entry of the table of clouds: a byte source, the file read from it, how it is drawn, and where it stands.
//
// The table's lock in shared mode is enough for every operation: what a host sets while a frame reads it is atomic or
// lies under the cloud's own mutex, which is innermost and never held across a call.
class PointCloud {
public:
    // Reads header and tree; getOPC().isLoaded() tells whether that went well.
    PointCloud(std::shared_ptr<PointCloudFile> fileIn, std::wstring pathIn, int idIn, bool writableIn);
    virtual ~PointCloud();
    PointCloud(const PointCloud&) = delete;
    PointCloud& operator=(const PointCloud&) = delete;

    [[nodiscard]] int getID() const { return id; }
    [[nodiscard]] const std::wstring& getPath() const { return path; }
    [[nodiscard]] bool isWritable() const { return writable; } // the source is open for writing
    [[nodiscard]] PointCloudFile& getFile() const { return *file; }
    [[nodiscard]] OPC& getOPC() const { return *opc; }

    [[nodiscard]] bool isEnabled() const { return enabled; }
    void setEnabled(bool value); // the byte source is told
    [[nodiscard]] bool getMask() const { return mask; }
    void setMask(bool value) { mask = value; }

    [[nodiscard]] PointCloudProperties getProperties() const;
    void setProperties(const PointCloudProperties& value);

    // Calls change(PointCloudProperties&) on the record, so that no other change gets in between.
    template <typename Change>
    void changeProperties(Change change) {
        std::lock_guard lock(placementMutex);
        change(properties);
    }

    [[nodiscard]] double getScale() const; // that of the X axis
    void setScale(double value);           // on all axes
    void setModelMatrix(const glm::dmat4& value);

    // The placement with the scale in its first three columns. The translation is not scaled.
    [[nodiscard]] glm::dmat4 getModelMatrix() const;

    // From the file's coordinates to the world's, and back.
    [[nodiscard]] glm::dvec4 applyTransformationsToVector(const glm::dvec4& v) const;
    [[nodiscard]] glm::dvec4 makeVectorRelative(const glm::dvec4& v) const;

    // The shape of the tree from the start of `out` on, 3 bytes a node.
    void getTreeStructure(char* out);

    // Tells the tree that a window is gone; nodes that no other window sees give up their points.
    void unregisterWindow(int window);

private:
    const std::shared_ptr<PointCloudFile> file; // shared with the OPC and its nodes
    std::atomic<bool> enabled{true};
    std::atomic<bool> mask{false};
    const int id;
    const std::shared_ptr<OPC> opc; // shared with jobs that outlive the call that began them
    const std::wstring path;
    const bool writable;
    mutable std::mutex placementMutex; // guards everything below
    PointCloudProperties properties;
    glm::dmat4 modelMatrix{1.0};
    glm::dvec3 scale{1.0};
};
