/*
 * Which driver display stands for the displays Android code asks for. There is no window system
 * here: EGL_DEFAULT_DISPLAY and the Android platform both mean Mesa's surfaceless platform.
 */
#pragma once

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

// The driver's surfaceless display (EGL_NO_DISPLAY when the driver has none).
EGLDisplay surfacelessDisplay();

// True when a request for `platform` / `nativeDisplay` means the surfaceless display.
bool meansSurfacelessDisplay(EGLenum platform, void* nativeDisplay);

}  // namespace hostgpu
}  // namespace zel
