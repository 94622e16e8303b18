/*
 * GL errors injected by tests on top of the driver's own. A real driver may hold several error
 * flags at once while Mesa keeps only the first, so the layer keeps a per-thread queue (GL errors
 * belong to the context current on the thread) that glGetError drains before asking Mesa.
 */
#pragma once

#include <GLES3/gl32.h>

namespace zel {
namespace hostgpu {

class GlErrorQueue {
public:
    static void push(GLenum error);
    // Takes the oldest injected error of the calling thread; false when there is none.
    static bool take(GLenum* error);
};

}  // namespace hostgpu
}  // namespace zel
