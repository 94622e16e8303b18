/*
 * The pair of GL buffer objects that holds a client mesh: one GL_ARRAY_BUFFER for the vertices and
 * one GL_ELEMENT_ARRAY_BUFFER for the indices. Held by Mesh::mVertexBuffer; made, filled and
 * deleted on the renderer's GL thread.
 */
#pragma once

#include <stddef.h>

#include <GLES3/gl31.h>

#include "Log.h"
#include "ScopedTrace.h"

namespace kav {
namespace zel {
namespace gl {

class VertexBuffer {
public:
    VertexBuffer() {
        ZEL_TRACE_NAME("VertexBuffer");
        glGenBuffers(1, &mVertexBufferId);
        ZEL_CheckGLError(kVertexBufferLogFile, __func__, __LINE__);
        glGenBuffers(1, &mIndexBufferId);
        ZEL_CheckGLError(kVertexBufferLogFile, __func__, __LINE__);
    }

    ~VertexBuffer() {
        ZEL_TRACE_NAME("~VertexBuffer");
        glDeleteBuffers(1, &mVertexBufferId);
        ZEL_CheckGLError(kVertexBufferLogFile, __func__, __LINE__);
        glDeleteBuffers(1, &mIndexBufferId);
        ZEL_CheckGLError(kVertexBufferLogFile, __func__, __LINE__);
    }

    VertexBuffer(const VertexBuffer&) = delete;
    VertexBuffer& operator=(const VertexBuffer&) = delete;

    // |index| picks the element-array buffer, otherwise the vertex buffer.
    void bind(bool index) const {
        ZEL_TRACE_NAME("bind");
        glBindBuffer(target(index), index ? mIndexBufferId : mVertexBufferId);
        ZEL_CheckGLError(kVertexBufferLogFile, __func__, __LINE__);
    }

    void unbind(bool index) const {
        ZEL_TRACE_NAME("unbind");
        glBindBuffer(target(index), 0);
        ZEL_CheckGLError(kVertexBufferLogFile, __func__, __LINE__);
    }

    // Replaces the contents of one buffer with |count| elements of |data| (floats for vertices,
    // unsigned ints for indices).
    template <typename T>
    void allocateBuffers(T* data, unsigned int count, bool index) const {
        static_assert(sizeof(T) == 4, "vertex and index elements are 32 bits wide");
        ZEL_TRACE_NAME("allocateBuffers");
        bind(index);
        {
            ZEL_TRACE_NAME("glBufferData");
            const size_t size = static_cast<size_t>(count) * sizeof(T);
            if (index) {
                ZEL_LOGD1("VEO glBufferData(), size=%zu", size);
            } else {
                ZEL_LOGD1("VBO glBufferData(), size=%zu", size);
            }
            glBufferData(target(index), static_cast<GLsizeiptr>(size), data, GL_STATIC_DRAW);
            ZEL_CheckGLError(kVertexBufferLogFile, __func__, __LINE__);
        }
        unbind(index);
    }

    GLuint getVertexBufferId() const { return mVertexBufferId; }
    GLuint getIndexBufferId() const { return mIndexBufferId; }

private:
    static constexpr const char* kVertexBufferLogFile = "src/VertexBuffer.h";

    static GLenum target(bool index) { return index ? GL_ELEMENT_ARRAY_BUFFER : GL_ARRAY_BUFFER; }

    GLuint mVertexBufferId = 0;
    GLuint mIndexBufferId = 0;
};

}  // namespace gl
}  // namespace zel
}  // namespace kav
