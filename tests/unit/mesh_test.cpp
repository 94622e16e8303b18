// Meshes: the grid builder and the per-thread cache keys; and the vertex buffer pair that holds a
// client mesh on the GPU. The rectangle and a grid are drawn end to end by the blit tests.
#include <unistd.h>

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <GLES3/gl31.h>
#include <android/log.h>

#include <zel/host/Gpu.h>

#include "EglContext.h"
#include "LogCapture.h"
#include "Mesh.h"

namespace kav::zel {
namespace {

using Floats = std::vector<float>;
using Indices = std::vector<uint32_t>;

TEST(Mesh, GridRowsAreStripsOfTheirOwn) {
    std::shared_ptr<Mesh> quad = Mesh::buildRect(2, 2);
    EXPECT_EQ(quad->mVertices, (Floats{-1, -1, 0, 0, -1, 1, 0, 1, 1, -1, 1, 0, 1, 1, 1, 1}));
    EXPECT_EQ(quad->mIndices, (Indices{0, 1, 2, 2, 1, 3}));

    std::shared_ptr<Mesh> grid = Mesh::buildRect(3, 3);
    ASSERT_EQ(grid->mVertexCount, 12u);
    ASSERT_EQ(grid->mIndexCount, 24u);
    for (size_t i = 0; i < grid->mVertices.size(); i += 4) {
        EXPECT_FLOAT_EQ(grid->mVertices[i + 2], (grid->mVertices[i] + 1) / 2) << i / 4;
        EXPECT_FLOAT_EQ(grid->mVertices[i + 3], (grid->mVertices[i + 1] + 1) / 2) << i / 4;
    }
    // One row (or none at all) is an empty mesh.
    for (auto [w, h] : {std::pair<size_t, size_t>{5, 1}, {0, 4}, {4, 0}}) {
        std::shared_ptr<Mesh> empty = Mesh::buildRect(w, h);
        EXPECT_TRUE(empty->mVertexCount == 0 && empty->mIndexCount == 0) << w << "x" << h;
        EXPECT_EQ(empty->mIndices, Indices{0});
    }
}

TEST(Mesh, CacheKeysArePerThreadAndFollowTheBuilders) {
    const uint64_t tid = static_cast<uint32_t>(gettid());
    EXPECT_EQ(Mesh::buildRectHash(), static_cast<size_t>(tid * 923521 + 180730));
    for (uint64_t w : {1, 2, 3, 16}) {
        const uint64_t h = w + 1;
        EXPECT_EQ(Mesh::buildRectHash(w, h),
                  static_cast<size_t>(tid * 923521 + (w * (h - 1) * 2) * 29791 + 1984 +
                                      (6 * w - 6) * (h - 1)));
    }
    size_t otherThread = 0;
    std::thread([&] { otherThread = Mesh::buildRectHash(); }).join();
    EXPECT_NE(otherThread, Mesh::buildRectHash());
}

TEST(VertexBuffer, LeavesNothingBoundAndDeletesItsBuffersWithIt) {
    ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();
    ::zel::test::EglContext context;
    ASSERT_TRUE(context.ok()) << context.failure();
    ::zel::test::LogCapture logs;
    GLuint names[2] = {};
    {
        gl::VertexBuffer buffer;
        names[0] = buffer.getVertexBufferId();
        names[1] = buffer.getIndexBufferId();
        std::shared_ptr<Mesh> grid = Mesh::buildRect(3, 2);
        buffer.allocateBuffers(grid->mVertices.data(), 6, false);
        buffer.allocateBuffers(grid->mIndices.data(), 12, true);
        for (GLenum binding : {GL_ARRAY_BUFFER_BINDING, GL_ELEMENT_ARRAY_BUFFER_BINDING}) {
            GLint bound = -1;
            glGetIntegerv(binding, &bound);
            EXPECT_EQ(bound, 0);
        }
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, ""), 0u) << logs.dump();
    }
    EXPECT_FALSE(glIsBuffer(names[0]) || glIsBuffer(names[1]));
}

}  // namespace
}  // namespace kav::zel
