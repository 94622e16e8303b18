/*
 * Decides, before a glDrawArrays runs, whether it writes every pixel of a render target, so that
 * the target's old contents need not be brought from buffer memory first. A wrong "yes" loses
 * pixels, so the answer is yes only when it is certain:
 * - the program places its vertices in a known way (PositionForm) and leaves no fragment out;
 * - the target is colour attachment 0 of a complete draw framebuffer, drawn through draw buffer
 *   0, with scissor, blending, depth and stencil tests, face culling, rasterizer discard and
 *   sample coverage off and every colour channel written;
 * - the viewport covers the target, and the draw is one triangle, or two that make an
 *   axis-aligned rectangle (a strip or fan of four vertices, or a list of six), that holds every
 *   pixel centre of the target with a margin for the rasteriser's rounding;
 * - the position attribute is an enabled float array read directly (no instancing, no separate
 *   binding), from client memory or from a buffer object that can be mapped for reading.
 */
#pragma once

#include <cstdint>

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class DrawCoverage {
public:
    // A linked program whose vertex placement is known: the location of its position attribute
    // and of its projection matrix (-1 when the position is the attribute itself).
    struct Program {
        GLint position = -1;
        GLint projection = -1;
    };
    struct DrawArrays {
        GLenum mode = 0;
        GLint first = 0;
        GLsizei count = 0;
    };

    // Whether `draw` with `program` (current as `programName`) writes every pixel of the
    // `width` x `height` texture `renderTexture`.
    static bool covers(const Program& program, GLuint programName, const DrawArrays& draw,
                       GLuint renderTexture, uint32_t width, uint32_t height);
    // Whether clip-space `positions` (x, y, z, w each, three or six vertices, or four of a strip
    // or fan), drawn as `mode` through the viewport `viewport` (x, y, width, height), cover every
    // pixel centre of a `width` x `height` target.
    static bool geometryCovers(GLenum mode, const double (*positions)[4], GLsizei count,
                               const GLint viewport[4], uint32_t width, uint32_t height);

private:
    static bool stateAllowsCover(GLuint renderTexture, uint32_t width, uint32_t height,
                                 GLint viewport[4]);
};

}  // namespace hostgpu
}  // namespace zel
