#include "ContextRegistry.h"

#include "Counters.h"

namespace zel {
namespace hostgpu {

ContextRegistry& ContextRegistry::instance() {
    // Never destroyed: contexts may still be destroyed while the process exits.
    static ContextRegistry* const registry = new ContextRegistry();
    return *registry;
}

void ContextRegistry::add(EGLContext context, std::shared_ptr<ContextState> state) {
    std::shared_ptr<ContextState> previous;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        auto [it, inserted] = mContexts.try_emplace(context, state);
        // The driver may hand out the handle of a context it destroyed earlier: that one is gone.
        if (inserted) {
            Counters::add(Counter::ContextsAlive);
        } else {
            previous = std::move(it->second);
            it->second = std::move(state);
        }
        Counters::add(Counter::ContextsCreated);
    }
    // `previous` goes outside the lock: it may take its share group with it.
}

bool ContextRegistry::remove(EGLContext context) {
    std::shared_ptr<ContextState> removed;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = mContexts.find(context);
        if (it == mContexts.end()) {
            return false;
        }
        removed = std::move(it->second);
        mContexts.erase(it);
        Counters::add(Counter::ContextsAlive, -1);
    }
    return true;
}

size_t ContextRegistry::removeDisplay(EGLDisplay display) {
    std::vector<std::shared_ptr<ContextState>> removed;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        for (auto it = mContexts.begin(); it != mContexts.end();) {
            if (it->second->display() == display) {
                removed.push_back(std::move(it->second));
                it = mContexts.erase(it);
            } else {
                ++it;
            }
        }
        Counters::add(Counter::ContextsAlive, -static_cast<int64_t>(removed.size()));
    }
    return removed.size();
}

std::shared_ptr<ContextState> ContextRegistry::find(EGLContext context) const {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mContexts.find(context);
    return it == mContexts.end() ? nullptr : it->second;
}

}  // namespace hostgpu
}  // namespace zel
