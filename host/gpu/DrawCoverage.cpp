#include "DrawCoverage.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "MesaDriver.h"

namespace zel {
namespace hostgpu {

namespace {

// How far inside the primitives the outermost pixel centres must lie, in pixels: more than the
// rasteriser's rounding of vertex positions (sub-pixel precision and float arithmetic).
constexpr double kMargin = 1.0 / 16.0;

struct Point {
    double x;
    double y;
};

bool operator==(const Point& a, const Point& b) {
    return a.x == b.x && a.y == b.y;
}

// Twice the signed area of (a, b, c).
double cross(const Point& a, const Point& b, const Point& c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

bool triangleHolds(const Point triangle[3], const Point& point) {
    const double area = cross(triangle[0], triangle[1], triangle[2]);
    if (area == 0.0) {
        return false;
    }
    for (int edge = 0; edge < 3; ++edge) {
        if (cross(triangle[edge], triangle[(edge + 1) % 3], point) * area < 0.0) {
            return false;
        }
    }
    return true;
}

// Whether two triangles are the halves of one axis-aligned rectangle, cut along a diagonal;
// its corners then go to `low` and `high`.
bool rectangleOf(const Point first[3], const Point second[3], Point* low, Point* high) {
    std::vector<Point> corners;
    for (const Point* triangle : {first, second}) {
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < i; ++j) {
                if (triangle[i] == triangle[j]) {
                    return false;
                }
            }
            bool known = false;
            for (const Point& corner : corners) {
                known = known || corner == triangle[i];
            }
            if (!known) {
                corners.push_back(triangle[i]);
            }
        }
    }
    if (corners.size() != 4) {
        return false;
    }
    *low = corners[0];
    *high = corners[0];
    for (const Point& corner : corners) {
        low->x = std::fmin(low->x, corner.x);
        low->y = std::fmin(low->y, corner.y);
        high->x = std::fmax(high->x, corner.x);
        high->y = std::fmax(high->y, corner.y);
    }
    for (const Point& corner : corners) {
        if ((corner.x != low->x && corner.x != high->x) ||
            (corner.y != low->y && corner.y != high->y)) {
            return false;  // four distinct points on two x and two y: the four corners
        }
    }
    // Four corners and three distinct points each: they share two, which must be opposite.
    std::vector<Point> shared;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            if (first[i] == second[j]) {
                shared.push_back(first[i]);
            }
        }
    }
    return shared.size() == 2 && shared[0].x != shared[1].x && shared[0].y != shared[1].y;
}

}  // namespace

bool DrawCoverage::geometryCovers(GLenum mode, const double (*positions)[4], GLsizei count,
                                  const GLint viewport[4], uint32_t width, uint32_t height) {
    if (viewport[0] > 0 || viewport[1] > 0 ||
        static_cast<int64_t>(viewport[0]) + viewport[2] < static_cast<int64_t>(width) ||
        static_cast<int64_t>(viewport[1]) + viewport[3] < static_cast<int64_t>(height)) {
        return false;
    }
    // Triangles as vertex indices.
    int triangles[2][3] = {{0, 1, 2}, {0, 0, 0}};
    int triangleCount = 0;
    if (count == 3 &&
        (mode == GL_TRIANGLES || mode == GL_TRIANGLE_STRIP || mode == GL_TRIANGLE_FAN)) {
        triangleCount = 1;
    } else if (count == 6 && mode == GL_TRIANGLES) {
        triangleCount = 2;
        triangles[1][0] = 3;
        triangles[1][1] = 4;
        triangles[1][2] = 5;
    } else if (count == 4 && mode == GL_TRIANGLE_STRIP) {
        triangleCount = 2;
        triangles[1][0] = 1;
        triangles[1][1] = 2;
        triangles[1][2] = 3;
    } else if (count == 4 && mode == GL_TRIANGLE_FAN) {
        triangleCount = 2;
        triangles[1][0] = 0;
        triangles[1][1] = 2;
        triangles[1][2] = 3;
    } else {
        return false;
    }
    // Window coordinates; nothing may be clipped by the near or far plane.
    Point window[6];
    for (GLsizei i = 0; i < count; ++i) {
        const double* p = positions[i];
        if (!(std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]) && p[3] > 0.0 &&
              std::isfinite(p[3]) && std::fabs(p[2]) <= p[3])) {
            return false;
        }
        window[i] = {(p[0] / p[3] + 1.0) * 0.5 * viewport[2] + viewport[0],
                     (p[1] / p[3] + 1.0) * 0.5 * viewport[3] + viewport[1]};
    }
    // The outermost pixel centres, pushed out by the margin.
    const Point low = {0.5 - kMargin, 0.5 - kMargin};
    const Point high = {width - 0.5 + kMargin, height - 0.5 + kMargin};
    Point shapes[2][3];
    for (int t = 0; t < triangleCount; ++t) {
        for (int v = 0; v < 3; ++v) {
            shapes[t][v] = window[triangles[t][v]];
        }
    }
    if (triangleCount == 1) {
        for (const Point& corner : {low, high, Point{low.x, high.y}, Point{high.x, low.y}}) {
            if (!triangleHolds(shapes[0], corner)) {
                return false;
            }
        }
        return true;
    }
    Point rectangleLow;
    Point rectangleHigh;
    return rectangleOf(shapes[0], shapes[1], &rectangleLow, &rectangleHigh) &&
           rectangleLow.x <= low.x && rectangleLow.y <= low.y && rectangleHigh.x >= high.x &&
           rectangleHigh.y >= high.y;
}

bool DrawCoverage::stateAllowsCover(GLuint renderTexture, uint32_t width, uint32_t height,
                                    GLint viewport[4]) {
    const MesaFunctions& gl = mesa();
    GLint value = 0;
    gl.glGetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0,
                                             GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE, &value);
    if (value != GL_TEXTURE) {
        return false;
    }
    gl.glGetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0,
                                             GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &value);
    if (static_cast<GLuint>(value) != renderTexture) {
        return false;
    }
    gl.glGetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0,
                                             GL_FRAMEBUFFER_ATTACHMENT_TEXTURE_LEVEL, &value);
    if (value != 0) {
        return false;
    }
    gl.glGetIntegerv(GL_DRAW_BUFFER0, &value);
    if (value != GL_COLOR_ATTACHMENT0) {
        return false;
    }
    for (GLenum capability :
         {GL_BLEND, GL_DEPTH_TEST, GL_STENCIL_TEST, GL_CULL_FACE, GL_RASTERIZER_DISCARD,
          GL_SAMPLE_ALPHA_TO_COVERAGE, GL_SAMPLE_COVERAGE, GL_SAMPLE_MASK}) {
        if (gl.glIsEnabled(capability) == GL_TRUE) {
            return false;
        }
    }
    if (gl.glIsEnabled(GL_SCISSOR_TEST) == GL_TRUE) {
        GLint box[4] = {};
        gl.glGetIntegerv(GL_SCISSOR_BOX, box);
        if (box[0] > 0 || box[1] > 0 ||
            static_cast<int64_t>(box[0]) + box[2] < static_cast<int64_t>(width) ||
            static_cast<int64_t>(box[1]) + box[3] < static_cast<int64_t>(height)) {
            return false;
        }
    }
    GLboolean mask[4] = {GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE};
    gl.glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    if (!(mask[0] && mask[1] && mask[2] && mask[3])) {
        return false;
    }
    gl.glGetIntegerv(GL_VIEWPORT, viewport);
    return gl.glCheckFramebufferStatus(GL_DRAW_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
}

bool DrawCoverage::covers(const Program& program, GLuint programName, const DrawArrays& draw,
                          GLuint renderTexture, uint32_t width, uint32_t height) {
    if (program.position < 0 || draw.first < 0 || draw.count < 3 || draw.count > 6) {
        return false;
    }
    GLint viewport[4] = {};
    if (!stateAllowsCover(renderTexture, width, height, viewport)) {
        return false;
    }
    // The position attribute: an enabled float array, read per vertex.
    const MesaFunctions& gl = mesa();
    const GLuint index = static_cast<GLuint>(program.position);
    GLint enabled = 0;
    GLint size = 0;
    GLint type = 0;
    GLint divisor = 0;
    GLint stride = 0;
    GLint buffer = 0;
    gl.glGetVertexAttribiv(index, GL_VERTEX_ATTRIB_ARRAY_ENABLED, &enabled);
    gl.glGetVertexAttribiv(index, GL_VERTEX_ATTRIB_ARRAY_SIZE, &size);
    gl.glGetVertexAttribiv(index, GL_VERTEX_ATTRIB_ARRAY_TYPE, &type);
    gl.glGetVertexAttribiv(index, GL_VERTEX_ATTRIB_ARRAY_DIVISOR, &divisor);
    gl.glGetVertexAttribiv(index, GL_VERTEX_ATTRIB_ARRAY_STRIDE, &stride);
    gl.glGetVertexAttribiv(index, GL_VERTEX_ATTRIB_ARRAY_BUFFER_BINDING, &buffer);
    if (enabled != GL_TRUE || size < 2 || type != GL_FLOAT || divisor != 0 || stride < 0) {
        return false;
    }
    // A vertex format of its own (glVertexAttribFormat, glBindVertexBuffer) is not followed.
    GLint binding = 0;
    GLint relativeOffset = 0;
    gl.glGetVertexAttribiv(index, GL_VERTEX_ATTRIB_BINDING, &binding);
    gl.glGetVertexAttribiv(index, GL_VERTEX_ATTRIB_RELATIVE_OFFSET, &relativeOffset);
    if (static_cast<GLuint>(binding) != index || relativeOffset != 0) {
        return false;
    }
    void* pointer = nullptr;
    gl.glGetVertexAttribPointerv(index, GL_VERTEX_ATTRIB_ARRAY_POINTER, &pointer);
    const size_t step = stride != 0 ? static_cast<size_t>(stride) : size * sizeof(float);
    const size_t begin = static_cast<size_t>(draw.first) * step;
    const size_t length = (static_cast<size_t>(draw.count) - 1) * step + 2 * sizeof(float);
    std::vector<unsigned char> bytes(length);
    if (buffer == 0) {
        if (pointer == nullptr) {
            return false;
        }
        std::memcpy(bytes.data(), static_cast<const unsigned char*>(pointer) + begin, length);
    } else {
        GLint previous = 0;
        gl.glGetIntegerv(GL_ARRAY_BUFFER_BINDING, &previous);
        gl.glBindBuffer(GL_ARRAY_BUFFER, static_cast<GLuint>(buffer));
        GLint mapped = GL_TRUE;
        GLint64 bufferSize = 0;
        gl.glGetBufferParameteriv(GL_ARRAY_BUFFER, GL_BUFFER_MAPPED, &mapped);
        gl.glGetBufferParameteri64v(GL_ARRAY_BUFFER, GL_BUFFER_SIZE, &bufferSize);
        const size_t offset = reinterpret_cast<size_t>(pointer) + begin;
        const void* data = nullptr;
        if (mapped == GL_FALSE && offset + length <= static_cast<uint64_t>(bufferSize)) {
            data = gl.glMapBufferRange(GL_ARRAY_BUFFER, static_cast<GLintptr>(offset),
                                       static_cast<GLsizeiptr>(length), GL_MAP_READ_BIT);
        }
        if (data != nullptr) {
            std::memcpy(bytes.data(), data, length);
            gl.glUnmapBuffer(GL_ARRAY_BUFFER);
        }
        gl.glBindBuffer(GL_ARRAY_BUFFER, static_cast<GLuint>(previous));
        if (data == nullptr) {
            return false;
        }
    }
    float matrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    if (program.projection >= 0) {
        gl.glGetUniformfv(programName, program.projection, matrix);
    }
    double positions[6][4];
    for (GLsizei i = 0; i < draw.count; ++i) {
        float xy[2];
        std::memcpy(xy, bytes.data() + static_cast<size_t>(i) * step, sizeof(xy));
        // Column-major: clip = M * (x, y, 0, 1).
        for (int row = 0; row < 4; ++row) {
            positions[i][row] = static_cast<double>(matrix[row]) * xy[0] +
                                static_cast<double>(matrix[4 + row]) * xy[1] + matrix[12 + row];
        }
    }
    return geometryCovers(draw.mode, positions, draw.count, viewport, width, height);
}

}  // namespace hostgpu
}  // namespace zel
