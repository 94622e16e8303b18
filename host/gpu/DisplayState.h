/*
 * What the layer keeps per EGL display: how many times it was initialised (eglTerminate only
 * terminates the driver's display when every eglInitialize has been matched, as on Android), the
 * driver profile it was brought up with, its extension string and what it knows about its
 * configs.
 */
#pragma once

#include <mutex>
#include <set>
#include <string>
#include <unordered_map>

#include <zel/host/Gpu.h>

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class DisplayState {
public:
    explicit DisplayState(EGLDisplay display) : mDisplay(display) {}
    DisplayState(const DisplayState&) = delete;
    DisplayState& operator=(const DisplayState&) = delete;

    EGLDisplay display() const { return mDisplay; }

    // A successful eglInitialize by the driver. The first one (after a full termination) takes
    // the driver profile in force.
    void addInitialization();
    // eglTerminate: true when the driver's display must really be terminated now (this was the
    // last initialisation, or the layer never counted one); false when only the count went down.
    bool dropInitialization();
    // The driver terminated the display: everything counted is gone.
    void terminated();

    host::DriverProfile profile() const;
    // The extension string clients see: the driver's, with what the layer implements added and
    // what the profile removes taken out. The same pointer until the display is re-initialised
    // with another profile. Null when the driver has no string (display not initialised).
    const char* extensions();
    bool hasExtension(const std::string& name);

    // The Android HAL pixel format of a config's colour buffer (EGL_NATIVE_VISUAL_ID), 0 when it
    // has none.
    EGLint halFormat(EGLConfig config);

private:
    void takeProfileLocked();
    bool composeLocked();

    const EGLDisplay mDisplay;
    mutable std::mutex mMutex;
    int mInitCount = 0;
    bool mHasProfile = false;
    host::DriverProfile mProfile;
    const char* mExtensions = nullptr;
    std::set<std::string> mExtensionNames;
    std::unordered_map<EGLConfig, EGLint> mHalFormats;
};

}  // namespace hostgpu
}  // namespace zel
