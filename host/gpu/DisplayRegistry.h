/*
 * The layer's state of every display the driver knows (DisplayState), kept for the life of the
 * process: clients may hold strings of a display after it is terminated.
 */
#pragma once

#include <memory>
#include <mutex>
#include <unordered_map>

#include "DisplayState.h"
#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class DisplayRegistry {
public:
    static DisplayRegistry& instance();

    // The state of `display`, made on first use. Only for displays the driver accepted.
    DisplayState& obtain(EGLDisplay display);

    // The state of `display` when the driver has it initialised; null otherwise, with the
    // driver's error (EGL_BAD_DISPLAY, EGL_NOT_INITIALIZED) left for eglGetError.
    DisplayState* initialized(EGLDisplay display);

private:
    DisplayRegistry() = default;

    std::mutex mMutex;
    std::unordered_map<EGLDisplay, std::unique_ptr<DisplayState>> mDisplays;
};

}  // namespace hostgpu
}  // namespace zel
