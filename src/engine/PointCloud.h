#pragma once

#include "render/DrawnCloud.h"

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

// One entry of the table of clouds: a byte source, the file read from it, how it is drawn, and where it stands.
//
// The table's lock in shared mode is enough for every operation: what a host sets while a frame reads it is atomic or
// lies under the cloud's own mutex, which is innermost and never held across a call.
class PointCloud {
public:
    // Reads header and tree; getOPC().isLoaded() tells whether that went well.
    PointCloud(std::shared_ptr<PointCloudFile> fileIn, std::wstring pathIn, bool writableIn);
    virtual ~PointCloud();
    PointCloud(const PointCloud&) = delete;
    PointCloud& operator=(const PointCloud&) = delete;

    // Set once, before the cloud is in the table.
    [[nodiscard]] int getID() const { return id; }
    void setID(int value) { id = value; }
    [[nodiscard]] const std::wstring& getPath() const { return path; }
    [[nodiscard]] bool isWritable() const { return writable; } // the source is open for writing
    [[nodiscard]] PointCloudFile& getFile() const { return *file; }
    [[nodiscard]] std::shared_ptr<PointCloudFile> shareFile() const { return file; } // to use it without the table

    // Ends the reading ahead of the source, and what it reads at this moment, before the cloud goes. For good.
    void endReadAhead() const;
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

    // How the cloud is drawn at this moment.
    [[nodiscard]] DrawnCloud drawn() const;

    // The file is protected, and the time until which it may be drawn has passed.
    [[nodiscard]] bool isExpired() const;

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
    int id = -1;
    const std::shared_ptr<OPC> opc; // shared with jobs that outlive the call that began them
    const std::wstring path;
    const bool writable;
    mutable std::mutex placementMutex; // guards everything below
    PointCloudProperties properties;
    glm::dmat4 modelMatrix{1.0};
    glm::dvec3 scale{1.0};
};
