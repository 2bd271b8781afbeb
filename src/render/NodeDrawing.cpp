// Walks a cloud's tree, uploads what changed and draws each node.
//
// Matrices stay in double precision until they go to the shaders, and vertices are relative to their node's corner, so
// that clouds far from the origin do not jitter.

#include "format/PointRecord.h"
#include "format/VoxelRecord.h"
#include "render/OpenGLRenderer.h"
#include "render/RendererResources.h"
#include "stream/GPUBatch.h"
#include "stream/NodeWalk.h"

#include <algorithm>
#include <epoxy/gl.h>
#include <glm/ext/matrix_transform.hpp>
#include <glm/matrix.hpp>

namespace {

constexpr GLsizei CUBE_CORNERS = 36;

void setAttribute(GLuint attribute, GLint components, GLenum type, GLboolean normalised, GLsizei stride,
                  size_t offset) {
    glEnableVertexAttribArray(attribute);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): OpenGL takes an offset in the buffer as a pointer
    const auto* place = reinterpret_cast<const void*>(offset);
    glVertexAttribPointer(attribute, components, type, normalised, stride, place);
}

// The points of a node that is drawn before it is loaded, read on the spot; empty when the read fails.
std::vector<unsigned char> readForced(OPCInterface& node) {
    std::vector<unsigned char> vertices(static_cast<size_t>(std::max<int>(node.getPointCount(), 0)) * Vertex::SIZE);
    if (!node.loadPointDataToGPUFormat(vertices)) vertices.clear();
    return vertices;
}

struct Drawable {
    uint32_t buffer;
    int vertexCount;
};

// Uploads the node's vertices if they changed, if they have no buffer yet, or if a draw is forced.
Drawable upload(OPCInterface& node, GPUBatch& batch, bool force, bool isVoxel) {
    std::vector<unsigned char> forced;
    if (force && !isVoxel && !batch.isResident()) forced = readForced(node);
    std::lock_guard lock(batch.mutex);
    batch.visited = true;
    const bool isPending = batch.changed.exchange(false);
    const bool isWanted = isPending || force || batch.vbo == 0;
    if (isWanted && (batch.data || !forced.empty())) {
        if (batch.vbo == 0) glGenBuffers(1, &batch.vbo);
        const void* bytes = batch.data ? batch.data.get() : forced.data();
        const auto size = batch.data ? batch.size : static_cast<int>(forced.size());
        glBindBuffer(GL_ARRAY_BUFFER, batch.vbo);
        glBufferData(GL_ARRAY_BUFFER, size, bytes, GL_STATIC_DRAW);
        batch.vertexCount = size / (isVoxel ? VoxelVertex::SIZE : Vertex::SIZE);
    }
    return {batch.vbo, batch.vertexCount};
}

bool isShown(const FrameView& view, const DrawnCloud& cloud, OPCInterface& node) {
    if (node.isVisible(view.window)) return true;
    return view.force && !cloud.isVoxel() && node.isNodeInFrustum(view.planes.data());
}

} // namespace

void deleteGPUData(OPCInterface& node, int window) {
    if (node.isVisibleAnyWindows()) return;
    walkNodes(node, [window](OPCInterface& next) {
        GPUBatch* batch = next.existingBatch(window);
        if (!batch) return false;
        std::lock_guard lock(batch->mutex);
        // What was not drawn since the last time has no buffers below it either. A buffer of its own would not tell: a
        // child can arrive before its parent.
        if (!batch->visited && batch->vbo == 0) return false;
        if (batch->vbo != 0) glDeleteBuffers(1, &batch->vbo);
        batch->vbo = 0;
        batch->visited = false;
        return true;
    });
}

void OpenGLRenderer::render(const FrameView& view, const DrawnCloud& cloud, const ClipBox& clip, const Shader& shader) {
    const Walk walk{view, cloud, clip, shader};
    beginCloud(walk);
    walkNodes(*cloud.root, [&](OPCInterface& node) { return drawNode(walk, node); });
    endCloud(walk);
}

void OpenGLRenderer::beginCloud(const Walk& walk) {
    glBindVertexArray(walk.cloud.isVoxel() ? frame->voxelArray.get() : frame->pointArray.get());
    glEnable(GL_PROGRAM_POINT_SIZE);
    if (!walk.cloud.isVoxel()) {
        // The current values are the host's; a scale other than 0 would make cubes of points.
        glVertexAttrib3f(PointProgram::VOXEL_OFFSET, 0.0F, 0.0F, 0.0F);
        glVertexAttrib3f(PointProgram::VOXEL_SCALE, 0.0F, 0.0F, 0.0F);
    }
    resources->points.setCloud(walk.cloud, walk.view, walk.shader);
}

void OpenGLRenderer::endCloud(const Walk&) {
    glDisable(GL_BLEND);
    glDepthFunc(GL_LESS);
    glDisable(GL_PROGRAM_POINT_SIZE);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindVertexArray(0);
}

// Whether to go on to the node's children.
bool OpenGLRenderer::drawNode(const Walk& walk, OPCInterface& node) {
    const FrameView& view = walk.view;
    if (!isShown(view, walk.cloud, node)) {
        if (!view.force || walk.cloud.isVoxel()) deleteGPUData(node, view.window);
        return false;
    }
    const Drawable drawable = upload(node, *node.getGPUBatch(view.window), view.force, walk.cloud.isVoxel());
    if (drawable.buffer != 0 && drawable.vertexCount > 0) {
        drawBuffer(walk, node, drawable.buffer, drawable.vertexCount);
    }
    // What is drawn only because it is forced gives its buffer back at once.
    if (view.force && !node.isVisible(view.window)) deleteGPUData(node, view.window);
    return true;
}

void OpenGLRenderer::drawBuffer(const Walk& walk, OPCInterface& node, uint32_t buffer, int vertexCount) {
    const double* box = node.getBoundingBox();
    const glm::dmat4 modelMatrix = glm::translate(walk.cloud.modelMatrix, glm::dvec3(box[0], box[1], box[2]));
    resources->points.setModelView(walk.view.view * modelMatrix);
    if (walk.clips()) {
        ClipBox clip = walk.clip;
        clip.setTransformation(glm::inverse(modelMatrix));
        resources->points.setClip(&clip);
    }
    glBindBuffer(GL_ARRAY_BUFFER, buffer);
    if (walk.cloud.isVoxel()) {
        constexpr GLsizei STRIDE = VoxelVertex::SIZE;
        setAttribute(PointProgram::VOXEL_OFFSET, 3, GL_FLOAT, GL_FALSE, STRIDE, VoxelVertex::CENTRE);
        setAttribute(PointProgram::VOXEL_SCALE, 3, GL_FLOAT, GL_FALSE, STRIDE, VoxelVertex::HALF_EDGE);
        setAttribute(PointProgram::COLOUR, 4, GL_UNSIGNED_BYTE, GL_TRUE, STRIDE, VoxelVertex::COLOUR);
        setAttribute(PointProgram::POINT_ATTRIBUTE, 2, GL_UNSIGNED_BYTE, GL_FALSE, STRIDE, VoxelVertex::ATTRIBUTE);
        for (const GLuint attribute : {PointProgram::VOXEL_OFFSET, PointProgram::VOXEL_SCALE, PointProgram::COLOUR,
                                       PointProgram::POINT_ATTRIBUTE}) {
            glVertexAttribDivisor(attribute, 1);
        }
        glEnable(GL_CULL_FACE);
        glCullFace(GL_BACK);
        glDrawArraysInstanced(GL_TRIANGLES, 0, CUBE_CORNERS, vertexCount);
        glDisable(GL_CULL_FACE);
    } else {
        setAttribute(PointProgram::POSITION, 3, GL_FLOAT, GL_FALSE, Vertex::SIZE, Vertex::POSITION);
        setAttribute(PointProgram::COLOUR, 4, GL_UNSIGNED_BYTE, GL_TRUE, Vertex::SIZE, Vertex::COLOUR);
        setAttribute(PointProgram::POINT_ATTRIBUTE, 2, GL_UNSIGNED_BYTE, GL_FALSE, Vertex::SIZE,
                     Vertex::CLASSIFICATION);
        glDrawArrays(GL_POINTS, 0, vertexCount);
    }
}
