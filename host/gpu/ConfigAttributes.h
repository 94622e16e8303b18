/*
 * Config attributes as an Android driver answers them, on top of the driver's configs:
 * EGL_RECORDABLE_ANDROID and EGL_FRAMEBUFFER_TARGET_ANDROID (true for configs with a HAL format),
 * EGL_NATIVE_VISUAL_ID (the HAL format), EGL_WINDOW_BIT in EGL_SURFACE_TYPE (same configs), and
 * the config-list switches of the display's driver profile (ES 2 only, no Android attributes, slow
 * caveat). eglChooseConfig hands the driver the criteria it understands and filters its answer by
 * the rest.
 */
#pragma once

#include "DisplayState.h"
#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class ConfigAttributes {
public:
    // True when the layer answers `attribute` (possibly on top of the driver's value).
    static bool answeredByLayer(EGLint attribute);
    // The value clients see; false (with the driver's error) when the config is not valid.
    static bool query(DisplayState& display, EGLConfig config, EGLint attribute, EGLint* outValue);
    // eglChooseConfig with the layer's attributes honoured.
    static EGLBoolean choose(DisplayState& display, const EGLint* attribList, EGLConfig* configs,
                             EGLint configSize, EGLint* numConfig);
};

}  // namespace hostgpu
}  // namespace zel
