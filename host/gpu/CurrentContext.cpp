#include "CurrentContext.h"

namespace zel {
namespace hostgpu {

namespace {
thread_local std::shared_ptr<ContextState> tCurrent;
}  // namespace

ContextState* CurrentContext::get() {
    return tCurrent.get();
}

void CurrentContext::set(std::shared_ptr<ContextState> state) {
    tCurrent = std::move(state);
}

}  // namespace hostgpu
}  // namespace zel
