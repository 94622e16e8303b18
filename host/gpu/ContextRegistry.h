/*
 * The EGL contexts alive in the process, with what the layer knows about each (ContextState): the
 * place where attributes the driver never sees are kept. Keeps Counter::ContextsAlive equal to its
 * size.
 */
#pragma once

#include <memory>
#include <mutex>
#include <unordered_map>

#include "ContextState.h"
#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class ContextRegistry {
public:
    static ContextRegistry& instance();

    // A context the driver just created.
    void add(EGLContext context, std::shared_ptr<ContextState> state);
    // A context the driver destroyed; false when it was not registered.
    bool remove(EGLContext context);
    // Every context of a terminated display; returns how many there were.
    size_t removeDisplay(EGLDisplay display);
    // The state of a live context; null when it is unknown.
    std::shared_ptr<ContextState> find(EGLContext context) const;

private:
    ContextRegistry() = default;

    mutable std::mutex mMutex;
    std::unordered_map<EGLContext, std::shared_ptr<ContextState>> mContexts;
};

}  // namespace hostgpu
}  // namespace zel
