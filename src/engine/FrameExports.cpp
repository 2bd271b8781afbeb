// The exports that drive frames: cameras, drawing, and what is armed for one frame.
//
// A frame has two halves. The camera's half, which nodes a window sees and what to load, is a job on cachePool. The
// drawing half runs on the host's thread and shows what has arrived; it waits for nothing that the first half does.

#include "engine/EngineState.h"
#include "engine/PointCloud.h"
#include "format/PointCloudFile.h"
#include "ground/Pools.h"
#include "nimbrel/NimbrelEngine.h"
#include "render/VisibilityPass.h"
#include "stream/OPC.h"
#include "stream/ReadAhead.h"

#include <algorithm>
#include <glm/gtc/type_ptr.hpp>

// The enabled clouds in table order. The caller holds mutex_.
static std::vector<DrawnCloud> enabledClouds(bool withExpired) {
    std::vector<DrawnCloud> clouds;
    for (const auto& cloud : pointClouds) {
        if (cloud->isEnabled() && (withExpired || !cloud->isExpired())) clouds.push_back(cloud->drawn());
    }
    return clouds;
}

// ---- The camera

// The job of a camera. Works with the values of the call that queued it, so that two windows set one after the other
// each get their own.
static void followCamera(const Camera& camera) {
    std::shared_lock lock(mutex_);
    const std::vector<DrawnCloud> clouds = enabledClouds(true);
    for (const DrawnCloud& cloud : clouds) {
        {
            // Point queries take the transformation that the last operation left.
            std::lock_guard filterLock(filterMutex);
            clipBox.setTransformation(cloud.modelMatrix);
        }
        // One set of planes for all: the last cloud's remain.
        frameDriver.setPlanes(checkVisibility(camera, cloud));
    }
    cacheVisible(camera.window, clouds);
}

// Blocks until the nodes that cameras asked for have arrived or failed.
static void waitForNodes() {
    // Sources are shared so that they outlive a close meanwhile; waiting with the table held would keep that close off.
    std::vector<std::shared_ptr<PointCloudFile>> sources;
    {
        std::shared_lock lock(mutex_);
        if (pointClouds.empty()) return;
        for (const auto& cloud : pointClouds) sources.push_back(cloud->shareFile());
    }
    cachePool.WaitAll();
    for (const auto& source : sources) {
        if (ReadAhead* ahead = source->readAhead()) ahead->waitAll();
    }
    diskPool().WaitAll();
}

void setCamera(int window, const double* view, const double* projection, const double* eye, double fovDegrees,
               int viewSize, bool waitForCache) {
    if (isAnyNull(view, projection, eye)) return;
    guarded(0, [&] {
        Camera camera{window,
                      glm::make_mat4(view),
                      glm::make_mat4(projection),
                      {eye[0], eye[1], eye[2], 1.0},
                      fovDegrees,
                      viewSize,
                      {}};
        {
            std::lock_guard lock(filterMutex);
            camera.clip = clipBox;
        }
        const auto job = [camera] {
            guarded(0, [&camera] {
                followCamera(camera);
                return 0;
            });
        };
        cachePool.AddJob(job, static_cast<unsigned long long>(window));
        if (waitForCache) waitForNodes();
        return 0;
    });
}

bool isNodeInFrustum(int id, const double* view, const double* projection, int node) {
    if (isAnyNull(view, projection)) return false;
    return withCloud(id, false, [=](PointCloud& cloud) {
        OPCInterface* found = cloud.getOPC().getNode(node);
        if (!found) return false;
        const auto planes = frustumPlanes(glm::make_mat4(projection) * glm::make_mat4(view) * cloud.getModelMatrix());
        return found->isNodeInFrustum(planes.data());
    });
}

// ---- Drawing

void setRenderCamera(int window, const double* view, const double* projection, const int* offscreenViewport,
                     const int* onscreenViewport, int lightState, const float* lightDirection) {
    if (isAnyNull(view, projection, offscreenViewport, onscreenViewport, lightDirection)) return;
    guarded(0, [&] {
        RenderCamera camera;
        camera.window = window;
        camera.view = glm::make_mat4(view);
        camera.projection = glm::make_mat4(projection);
        std::copy_n(offscreenViewport, 4, camera.offscreenViewport.begin());
        std::copy_n(onscreenViewport, 4, camera.onscreenViewport.begin());
        camera.lightState = lightState;
        camera.lightDirection = glm::make_vec3(lightDirection);
        frameDriver.setCamera(camera);
        return 0;
    });
}

void setForceRender(bool force) {
    guarded(0, [force] {
        frameDriver.setForce(force);
        return 0;
    });
}

// The caller holds mutex_.
static void forgetBuffers() {
    deleteVboList.clear();
    for (const auto& cloud : pointClouds) cloud->getOPC().getRootNode()->forgetBuffers();
}

static void drawClouds() {
    ClipBox clip;
    Shader colouring;
    {
        std::lock_guard lock(filterMutex);
        clip = clipBox;
        colouring = shader;
    }
    std::shared_lock lock(mutex_);
    if (renderer.takeContextChange()) forgetBuffers();
    frameDriver.draw(enabledClouds(false), clip, colouring, deleteVboList);
}

static void disarmFilters() {
    std::lock_guard lock(filterMutex);
    if (!processingAtomic) clipBox.setActive(false);
    shader.active = false;
}

void render() {
    guarded(0, [] {
        const bool isPossible = frameDriver.begin();
        if (isPossible) drawClouds();
        disarmFilters();
        if (isPossible) frameDriver.end();
        return 0;
    });
}

void savePPMImage(const wchar_t* path) {
    guarded(0, [path] {
        renderer.savePPMImage(path ? path : L"");
        return 0;
    });
}

// ---- What is armed for one frame

void activateShader(const double* normal, const double* point, float blend, float offset, float shadDist, int repeat,
                    bool hue, const float* colour1, const float* colour2, const float* colour3) {
    if (isAnyNull(normal, point, colour1, colour2, colour3)) return;
    guarded(0, [&] {
        const Shader armed{glm::vec4(glm::make_vec3(normal), 0.0F),
                           glm::vec4(glm::make_vec3(point), 1.0F),
                           blend,
                           offset,
                           shadDist,
                           repeat,
                           hue,
                           glm::make_vec3(colour1),
                           glm::make_vec3(colour2),
                           glm::make_vec3(colour3),
                           true};
        std::lock_guard lock(filterMutex);
        shader = armed;
        return 0;
    });
}

void activateClipBox(const double* planes, const float* rgba, int mode) {
    if (isAnyNull(planes, rgba)) return;
    guarded(0, [&] {
        // The host lists a face of each axis and then the opposite ones; here opposite faces follow each other.
        constexpr int HOST_FACE[] = {0, 3, 1, 4, 2, 5};
        ClipBox::Planes ordered;
        for (size_t i = 0; i < ordered.size(); ++i) {
            ordered[i] = glm::make_vec3(planes + 6 * HOST_FACE[i / 2] + 3 * (i % 2));
        }
        std::lock_guard lock(filterMutex);
        clipBox.setRGB(rgba[0], rgba[1], rgba[2], rgba[3]);
        clipBox.setPlanes(ordered);
        clipBox.setActive(true);
        clipBox.setClipMode(mode);
        return 0;
    });
}

void setLasClassifications(const unsigned char* table) {
    if (isAnyNull(table)) return;
    guarded(0, [table] {
        {
            std::lock_guard lock(filterMutex);
            classifications.setClassifications(table);
        }
        renderer.setClassifications(table);
        return 0;
    });
}
