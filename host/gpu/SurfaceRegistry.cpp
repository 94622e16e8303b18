#include "SurfaceRegistry.h"

namespace zel {
namespace hostgpu {

SurfaceRegistry& SurfaceRegistry::instance() {
    // Never destroyed: surfaces may still be destroyed while the process exits.
    static SurfaceRegistry* const registry = new SurfaceRegistry();
    return *registry;
}

void SurfaceRegistry::add(EGLDisplay display, EGLSurface surface, bool isProtected) {
    std::lock_guard<std::mutex> lock(mMutex);
    mSurfaces[surface] = {display, isProtected};
}

void SurfaceRegistry::remove(EGLSurface surface) {
    std::lock_guard<std::mutex> lock(mMutex);
    mSurfaces.erase(surface);
}

void SurfaceRegistry::removeDisplay(EGLDisplay display) {
    std::lock_guard<std::mutex> lock(mMutex);
    for (auto it = mSurfaces.begin(); it != mSurfaces.end();) {
        it = it->second.display == display ? mSurfaces.erase(it) : std::next(it);
    }
}

bool SurfaceRegistry::isProtected(EGLSurface surface, bool* outProtected) const {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mSurfaces.find(surface);
    if (it == mSurfaces.end()) {
        return false;
    }
    *outProtected = it->second.isProtected;
    return true;
}

}  // namespace hostgpu
}  // namespace zel
