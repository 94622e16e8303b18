#include "EglError.h"

namespace zel {
namespace hostgpu {

namespace {
// 0 while the driver's state applies; EGL error codes start at EGL_SUCCESS (0x3000).
thread_local EGLint tLayerError = 0;
}  // namespace

void EglError::deferToDriver() {
    tLayerError = 0;
}

void EglError::set(EGLint error) {
    tLayerError = error;
}

bool EglError::take(EGLint* error) {
    if (tLayerError == 0) {
        return false;
    }
    *error = tLayerError;
    tLayerError = 0;
    return true;
}

}  // namespace hostgpu
}  // namespace zel
