/*
 * The EGL contexts alive in the process, with what the layer knows about each: the place where
 * attributes the driver never sees are kept. Keeps Counter::ContextsAlive equal to its size.
 */
#pragma once

#include <mutex>
#include <unordered_map>

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

struct ContextRecord {
    EGLDisplay display = EGL_NO_DISPLAY;
};

class ContextRegistry {
public:
    static ContextRegistry& instance();

    // A context the driver just created.
    void add(EGLContext context, const ContextRecord& record);
    // A context the driver destroyed; false when it was not registered.
    bool remove(EGLContext context);
    // Every context of a terminated display; returns how many there were.
    size_t removeDisplay(EGLDisplay display);
    // The record of a live context; false when it is unknown.
    bool find(EGLContext context, ContextRecord* record) const;

private:
    ContextRegistry() = default;

    mutable std::mutex mMutex;
    std::unordered_map<EGLContext, ContextRecord> mContexts;
};

}  // namespace hostgpu
}  // namespace zel
