#include "Mesh.h"

#include <stdio.h>
#include <sys/types.h>
#include <unistd.h>

#include "Log.h"
#include "ScopedTrace.h"

namespace kav {
namespace zel {

namespace {

constexpr size_t kRectVertexCount = 6;
constexpr size_t kPositionSize = 2;
constexpr size_t kTexCoordSize = 2;

// x, y, s, t of the two triangles; every s, t is ((x + 1) / 2, (y + 1) / 2).
constexpr float kRectVertices[kRectVertexCount * (kPositionSize + kTexCoordSize)] = {
    -1.0f, 1.0f,  0.0f, 1.0f,  //
    -1.0f, -1.0f, 0.0f, 0.0f,  //
    1.0f,  -1.0f, 1.0f, 0.0f,  //
    -1.0f, 1.0f,  0.0f, 1.0f,  //
    1.0f,  -1.0f, 1.0f, 0.0f,  //
    1.0f,  1.0f,  1.0f, 1.0f,
};

uint64_t threadHashSeed() {
    const pid_t tid = gettid();
    if (tid < 0) {
        ZEL_LOGD1("get tid = 0");
        return 0;
    }
    return static_cast<uint32_t>(tid);
}

size_t meshHash(size_t vertexCount, size_t vertexSize, size_t texCoordSize, size_t indexCount) {
    uint64_t hash = threadHashSeed();
    for (uint64_t value : {vertexCount, vertexSize, texCoordSize, indexCount}) {
        hash = hash * 31 + value;
    }
    return static_cast<size_t>(hash);
}

// A grid with no column or no row has nothing in it (the formulas would wrap around).
size_t gridVertexCount(size_t w, size_t h) {
    return w == 0 || h == 0 ? 0 : w * (h - 1) * 2;
}

size_t gridIndexCount(size_t w, size_t h) {
    return w == 0 || h == 0 ? 0 : (w - 1) * (h - 1) * 6;
}

}  // namespace

Mesh::Mesh(Primitive primitive, size_t vertexCount, size_t vertexSize, size_t texCoordSize,
           size_t indexCount)
    : mVertexCount(vertexCount),
      mVertexSize(vertexSize),
      mTexCoordSize(texCoordSize),
      mStride(vertexSize + texCoordSize),
      mIndexCount(indexCount),
      mPrimitive(primitive) {
    ZEL_TRACE_NAME("Mesh");
    mVertices.resize(mStride * vertexCount, 0.0f);
    mIndices.resize(indexCount != 0 ? indexCount : 1, 0);
    ZEL_LOGD("mVertexCount=%zu", mVertexCount);
    ZEL_LOGD("vertexSize=%zu", vertexSize);
    ZEL_LOGD("texCoordSize=%zu", texCoordSize);
    ZEL_LOGD("mStride=%zu", mStride);
    ZEL_LOGD("mIndexCount=%zu", mIndexCount);
}

std::shared_ptr<Mesh> Mesh::buildRect() {
    ZEL_TRACE_NAME("buildRect");
    auto mesh =
        std::make_shared<Mesh>(TRIANGLES, kRectVertexCount, kPositionSize, kTexCoordSize, 0);
    mesh->mVertices.assign(std::begin(kRectVertices), std::end(kRectVertices));
    return mesh;
}

std::shared_ptr<Mesh> Mesh::buildRect(size_t w, size_t h) {
    ZEL_TRACE_NAME("buildRect");
    auto mesh = std::make_shared<Mesh>(TRIANGLES, gridVertexCount(w, h), kPositionSize,
                                       kTexCoordSize, gridIndexCount(w, h));
    if (mesh->mVertexCount == 0) {
        return mesh;
    }

    const float stepX = 2.0f / static_cast<float>(w - 1);
    const float stepY = 2.0f / static_cast<float>(h - 1);
    const float stepS = 1.0f / static_cast<float>(w - 1);
    const float stepT = 1.0f / static_cast<float>(h - 1);
    float* vertex = mesh->mVertices.data();
    for (size_t r = 0; r + 1 < h; ++r) {
        const float lowY = static_cast<float>(r) * stepY - 1.0f;
        const float highY = static_cast<float>(r + 1) * stepY - 1.0f;
        const float lowT = static_cast<float>(r) * stepT;
        const float highT = static_cast<float>(r + 1) * stepT;
        for (size_t c = 0; c < w; ++c) {
            const float x = static_cast<float>(c) * stepX - 1.0f;
            const float s = static_cast<float>(c) * stepS;
            // The lower and the upper vertex of the column, side by side.
            *vertex++ = x;
            *vertex++ = lowY;
            *vertex++ = s;
            *vertex++ = lowT;
            *vertex++ = x;
            *vertex++ = highY;
            *vertex++ = s;
            *vertex++ = highT;
        }
    }

    uint32_t* index = mesh->mIndices.data();
    for (size_t r = 0; r + 1 < h; ++r) {
        for (size_t c = 0; c + 1 < w; ++c) {
            const uint32_t base = static_cast<uint32_t>(2 * (w * r + c));
            for (uint32_t offset : {0u, 1u, 2u, 2u, 1u, 3u}) {
                *index++ = base + offset;
            }
        }
    }
    return mesh;
}

size_t Mesh::buildRectHash() {
    return meshHash(kRectVertexCount, kPositionSize, kTexCoordSize, 0);
}

size_t Mesh::buildRectHash(size_t w, size_t h) {
    return meshHash(gridVertexCount(w, h), kPositionSize, kTexCoordSize, gridIndexCount(w, h));
}

void Mesh::debugVerticesArray() {
    printf("var = {");
    for (size_t i = 0; i < mVertices.size(); ++i) {
        printf("%f,", mVertices[i]);
        if (mStride != 0 && (i + 1) % mStride == 0) {
            printf("\n");
        }
    }
    printf("}; \n");
}

void Mesh::debugIndicesArray() {
    printf("ind = {");
    for (size_t i = 0; i < mIndices.size(); ++i) {
        printf("%u,", mIndices[i]);
        if ((i + 1) % 3 == 0) {
            printf("\n");
        }
    }
    printf("}; \n");
}

}  // namespace zel
}  // namespace kav
