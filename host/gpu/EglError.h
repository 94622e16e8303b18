/*
 * The EGL error of the calling thread when the layer, not the driver, answered the last EGL call.
 *
 * eglGetError reports the error of the thread's last EGL call. Forwarded calls leave it to the
 * driver (deferToDriver); a call the layer fails or completes on its own records its result with
 * set(), and eglGetError returns that once instead of the driver's.
 */
#pragma once

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class EglError {
public:
    // The driver's error state answers the next eglGetError.
    static void deferToDriver();
    // The next eglGetError answers `error` (EGL_SUCCESS included).
    static void set(EGLint error);
    // The layer's error, if one is recorded, clearing it; false when the driver's state applies.
    static bool take(EGLint* error);
};

}  // namespace hostgpu
}  // namespace zel
