/*
 * The geometry of one draw: interleaved vertices (a 2-D position followed by its texture
 * coordinate) and an optional index list, with the primitive to draw them as. The renderer draws
 * the built-in rectangle from client memory unless the source buffer brings a mesh of its own,
 * which the conversion pass uploads into mVertexBuffer for the length of that pass.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <vector>

#include <GLES3/gl31.h>

#include "VertexBuffer.h"

namespace kav {
namespace zel {

class Mesh {
public:
    // The GL primitive itself, handed unchanged to glDrawArrays and glDrawElements.
    enum Primitive : GLenum {
        TRIANGLES = GL_TRIANGLES,
        TRIANGLE_STRIP = GL_TRIANGLE_STRIP,
        TRIANGLE_FAN = GL_TRIANGLE_FAN,
    };

    // Zero-filled vertices; an index count of 0 still keeps one (zero) index element.
    Mesh(Primitive primitive, size_t vertexCount, size_t vertexSize, size_t texCoordSize,
         size_t indexCount);
    Mesh(const Mesh&) = delete;
    Mesh& operator=(const Mesh&) = delete;

    // The clip-space rectangle as two triangles, six vertices, no indices.
    static std::shared_ptr<Mesh> buildRect();
    // The same rectangle as a grid of w columns and h rows of vertices; each row of cells is a
    // strip of its own (rows share no vertices), drawn through indices. Empty when h is 1.
    static std::shared_ptr<Mesh> buildRect(size_t w, size_t h);

    // Cache keys of the two builders' meshes, per calling thread: meshes carry GL buffer state of
    // one context.
    static size_t buildRectHash();
    static size_t buildRectHash(size_t w, size_t h);

    // Print the arrays to standard output as C initialisers.
    void debugVerticesArray();
    void debugIndicesArray();

    std::vector<float> mVertices;
    size_t mVertexCount = 0;
    size_t mVertexSize = 0;    // floats per position
    size_t mTexCoordSize = 0;  // floats per texture coordinate
    size_t mStride = 0;        // floats per vertex
    std::vector<uint32_t> mIndices;
    size_t mIndexCount = 0;  // 0: the vertices are drawn in order
    Primitive mPrimitive = TRIANGLES;
    std::shared_ptr<gl::VertexBuffer> mVertexBuffer;  // empty (outside a pass): client memory
};

}  // namespace zel
}  // namespace kav
