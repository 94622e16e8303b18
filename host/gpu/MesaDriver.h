/*
 * The real EGL/GLES driver under the layer: Mesa, loaded privately with
 * dlopen(RTLD_NOW | RTLD_LOCAL) through glvnd's libEGL.so.1, every function resolved through the
 * driver's own eglGetProcAddress.
 *
 * Hand-written entry points call the driver through mesa().<function>(...); never through the
 * exported names, which would come back into the layer.
 */
#pragma once

#include <string>

#include "MesaFunctions.h"

namespace zel {
namespace hostgpu {

class MesaDriver {
public:
    // The process's driver, loaded on first use (thread-safe, once). When loading fails a line
    // goes to stderr and every function is a failing stand-in, so callers never check for null.
    static const MesaDriver& instance();

    const MesaFunctions& functions() const { return mFunctions; }
    // True when the driver library was loaded and its eglGetProcAddress found.
    bool loaded() const { return mHandle != nullptr; }
    // Why loading failed; empty when loaded() is true.
    const std::string& failure() const { return mFailure; }
    // The library that was (or would have been) loaded.
    const std::string& library() const { return mLibrary; }
    // How many exported functions the driver does not provide (they fail like stand-ins).
    size_t missingFunctions() const { return mMissingFunctions; }

    // Keeps the driver modules that an eglInitialize loaded (Mesa's DRI driver) loaded for the
    // life of the process. Call after every successful eglInitialize; the work is done once.
    static void keepDriverModulesLoaded();

    MesaDriver(const MesaDriver&) = delete;
    MesaDriver& operator=(const MesaDriver&) = delete;

private:
    MesaDriver();
    ~MesaDriver() = default;
    void load();

    void* mHandle = nullptr;
    std::string mLibrary;
    std::string mFailure;
    MesaFunctions mFunctions;
    size_t mMissingFunctions = 0;
};

inline const MesaFunctions& mesa() {
    return MesaDriver::instance().functions();
}

}  // namespace hostgpu
}  // namespace zel
