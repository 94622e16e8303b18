#include "CurrentContext.h"

namespace zel {
namespace hostgpu {

namespace {

// The owning reference dies with the thread, and at process exit before static objects do; a
// renderer held in a static still makes EGL calls after that. Readers therefore go through a
// plain pointer that the holder clears when it goes, and nothing is stored once it has gone.
thread_local ContextState* tCurrent = nullptr;
thread_local bool tHolderGone = false;

struct Holder {
    std::shared_ptr<ContextState> state;
    ~Holder() {
        tCurrent = nullptr;
        tHolderGone = true;
    }
};
thread_local Holder tHolder;

}  // namespace

ContextState* CurrentContext::get() {
    return tCurrent;
}

void CurrentContext::set(std::shared_ptr<ContextState> state) {
    if (tHolderGone) {
        return;
    }
    tCurrent = state.get();
    tHolder.state = std::move(state);
}

}  // namespace hostgpu
}  // namespace zel
