#include "ContextRegistry.h"

#include "Counters.h"

namespace zel {
namespace hostgpu {

ContextRegistry& ContextRegistry::instance() {
    // Never destroyed: contexts may still be destroyed while the process exits.
    static ContextRegistry* const registry = new ContextRegistry();
    return *registry;
}

void ContextRegistry::add(EGLContext context, const ContextRecord& record) {
    std::lock_guard<std::mutex> lock(mMutex);
    // The driver may hand out the handle of a context it destroyed earlier: that one is gone.
    if (mContexts.insert_or_assign(context, record).second) {
        Counters::add(Counter::ContextsAlive);
    }
    Counters::add(Counter::ContextsCreated);
}

bool ContextRegistry::remove(EGLContext context) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mContexts.erase(context) == 0) {
        return false;
    }
    Counters::add(Counter::ContextsAlive, -1);
    return true;
}

size_t ContextRegistry::removeDisplay(EGLDisplay display) {
    std::lock_guard<std::mutex> lock(mMutex);
    size_t removed = 0;
    for (auto it = mContexts.begin(); it != mContexts.end();) {
        if (it->second.display == display) {
            it = mContexts.erase(it);
            ++removed;
        } else {
            ++it;
        }
    }
    Counters::add(Counter::ContextsAlive, -static_cast<int64_t>(removed));
    return removed;
}

bool ContextRegistry::find(EGLContext context, ContextRecord* record) const {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mContexts.find(context);
    if (it == mContexts.end()) {
        return false;
    }
    *record = it->second;
    return true;
}

}  // namespace hostgpu
}  // namespace zel
