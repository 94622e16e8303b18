/*
 * The EGL and GLES functions this library exports, by name: what eglGetProcAddress answers, so
 * that code fetching functions by name still goes through the layer.
 */
#pragma once

#include <cstddef>

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

struct ExportedFunction {
    const char* name;
    __eglMustCastToProperFunctionPointerType address;
};

// Generated (ExportedFunctions.cpp), sorted by name.
extern const ExportedFunction kExportedFunctions[];
extern const size_t kExportedFunctionCount;

class ExportTable {
public:
    // Our exported function called `name`, or null when the library does not export it.
    static __eglMustCastToProperFunctionPointerType find(const char* name);
};

}  // namespace hostgpu
}  // namespace zel
