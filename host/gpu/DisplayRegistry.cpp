#include "DisplayRegistry.h"

#include "EglError.h"
#include "MesaDriver.h"

namespace zel {
namespace hostgpu {

DisplayRegistry& DisplayRegistry::instance() {
    // Never destroyed: displays may still be used while the process exits.
    static DisplayRegistry* const registry = new DisplayRegistry();
    return *registry;
}

DisplayState& DisplayRegistry::obtain(EGLDisplay display) {
    std::lock_guard<std::mutex> lock(mMutex);
    std::unique_ptr<DisplayState>& state = mDisplays[display];
    if (!state) {
        state = std::make_unique<DisplayState>(display);
    }
    return *state;
}

DisplayState* DisplayRegistry::initialized(EGLDisplay display) {
    // The driver is the judge of what is a valid, initialised display.
    if (mesa().eglQueryString(display, EGL_VENDOR) == nullptr) {
        EglError::deferToDriver();
        return nullptr;
    }
    return &obtain(display);
}

}  // namespace hostgpu
}  // namespace zel
