#include "DisplaySelection.h"

#include "MesaDriver.h"

namespace zel {
namespace hostgpu {

EGLDisplay surfacelessDisplay() {
    // Mesa returns the same display for the same platform and native display every time.
    return mesa().eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY,
                                        nullptr);
}

bool meansSurfacelessDisplay(EGLenum platform, void* nativeDisplay) {
    return platform == EGL_PLATFORM_ANDROID_KHR && nativeDisplay == EGL_DEFAULT_DISPLAY;
}

}  // namespace hostgpu
}  // namespace zel
