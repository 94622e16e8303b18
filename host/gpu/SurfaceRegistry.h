/*
 * Surface attributes the driver never sees: EGL_PROTECTED_CONTENT_EXT of pbuffers.
 */
#pragma once

#include <mutex>
#include <unordered_map>

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class SurfaceRegistry {
public:
    static SurfaceRegistry& instance();

    void add(EGLDisplay display, EGLSurface surface, bool isProtected);
    void remove(EGLSurface surface);
    void removeDisplay(EGLDisplay display);
    // False when the layer knows nothing about the surface.
    bool isProtected(EGLSurface surface, bool* outProtected) const;

private:
    struct Record {
        EGLDisplay display;
        bool isProtected;
    };

    SurfaceRegistry() = default;

    mutable std::mutex mMutex;
    std::unordered_map<EGLSurface, Record> mSurfaces;
};

}  // namespace hostgpu
}  // namespace zel
