#include "MesaDriver.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace zel {
namespace hostgpu {

namespace {

constexpr const char* kDefaultLibrary = "libEGL.so.1";
// Names another EGL library to load instead (a different driver, or a missing one for tests).
constexpr const char* kLibraryVariable = "ZEL_HOST_EGL_LIBRARY";

struct Resolver {
    void* handle;
    PFNEGLGETPROCADDRESSPROC getProcAddress;
};

__eglMustCastToProperFunctionPointerType resolve(const char* name, void* context) {
    const Resolver* resolver = static_cast<const Resolver*>(context);
    __eglMustCastToProperFunctionPointerType function = resolver->getProcAddress(name);
    if (function == nullptr) {
        // Drivers without EGL_KHR_get_all_proc_addresses only answer for extension functions.
        function = reinterpret_cast<__eglMustCastToProperFunctionPointerType>(
            dlsym(resolver->handle, name));
    }
    return function;
}

}  // namespace

const MesaDriver& MesaDriver::instance() {
    // Never destroyed: entry points may still be called while the process exits.
    static const MesaDriver* const driver = new MesaDriver();
    return *driver;
}

MesaDriver::MesaDriver() {
    const char* library = getenv(kLibraryVariable);
    mLibrary = library != nullptr && library[0] != '\0' ? library : kDefaultLibrary;
    load();
    if (!mFailure.empty()) {
        fprintf(stderr, "zel-hostgpu: %s; every EGL and GLES call will fail\n", mFailure.c_str());
    }
    mMissingFunctions = fillMissingMesaFunctions(mFunctions, nullptr);
}

void MesaDriver::load() {
    void* handle = dlopen(mLibrary.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* error = dlerror();
        mFailure = "cannot load the EGL driver " + mLibrary + ": " + (error ? error : "unknown");
        return;
    }
    auto getProcAddress =
        reinterpret_cast<PFNEGLGETPROCADDRESSPROC>(dlsym(handle, "eglGetProcAddress"));
    if (getProcAddress == nullptr) {
        mFailure = "the EGL driver " + mLibrary + " has no eglGetProcAddress";
        dlclose(handle);
        return;
    }
    // The library stays loaded for the life of the process: Mesa does not support unloading.
    mHandle = handle;
    Resolver resolver{handle, getProcAddress};
    resolveMesaFunctions(mFunctions, resolve, &resolver);
}

}  // namespace hostgpu
}  // namespace zel
