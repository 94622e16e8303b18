/*
 * Hand-written EGL query entry points: the thread's error, which the layer may have raised itself,
 * and function lookup by name, which must hand out the layer's own functions.
 */
#include "EglError.h"
#include "ExportTable.h"
#include "MesaDriver.h"

using zel::hostgpu::EglError;
using zel::hostgpu::ExportTable;
using zel::hostgpu::mesa;

extern "C" {

EGLint EGLAPIENTRY eglGetError(void) {
    EGLint error = EGL_SUCCESS;
    if (EglError::take(&error)) {
        // Reading the driver's error resets it, as this call must.
        mesa().eglGetError();
        return error;
    }
    return mesa().eglGetError();
}

__eglMustCastToProperFunctionPointerType EGLAPIENTRY eglGetProcAddress(const char* procname) {
    // Names we do not export get null rather than the driver's function: handing that out would
    // let callers bypass the layer.
    return ExportTable::find(procname);
}

}  // extern "C"
