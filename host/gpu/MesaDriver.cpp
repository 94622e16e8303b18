#include "MesaDriver.h"

#include <dlfcn.h>
#include <link.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

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

// Mesa's DRI drivers (swrast_dri.so and its kin) and, in newer releases, the gallium library
// they share.
bool isDriverModule(const char* path) {
    return strstr(path, "_dri.so") != nullptr || strstr(path, "/libgallium") != nullptr;
}

int pinDriverModule(dl_phdr_info* info, size_t /*size*/, void* /*context*/) {
    if (info->dlpi_name != nullptr && isDriverModule(info->dlpi_name)) {
        // RTLD_NODELETE on a module already loaded makes it permanent; the extra reference this
        // takes is never dropped on purpose.
        dlopen(info->dlpi_name, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
    }
    return 0;
}

}  // namespace

void MesaDriver::keepDriverModulesLoaded() {
    // Mesa unloads its DRI driver when the last display is terminated and loads it again (with
    // LLVM's initialisation) on the next eglInitialize. The driver keeps allocations reachable
    // only from its own globals, so unloading it turns them into leaks and every renderer
    // created after a terminate pays the load again. The driver stays loaded instead, like the
    // EGL library itself.
    static std::once_flag once;
    std::call_once(once, [] { dl_iterate_phdr(pinDriverModule, nullptr); });
}

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
