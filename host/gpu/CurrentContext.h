/*
 * The layer's state of the context current on the calling thread, as set by the layer's
 * eglMakeCurrent. Holding it keeps a destroyed context's state until it is released, as EGL keeps
 * the context itself.
 */
#pragma once

#include <memory>

#include "ContextState.h"

namespace zel {
namespace hostgpu {

class CurrentContext {
public:
    // Null when no context of the layer is current.
    static ContextState* get();
    static void set(std::shared_ptr<ContextState> state);
};

}  // namespace hostgpu
}  // namespace zel
