#include "GlErrorQueue.h"

#include <deque>

namespace zel {
namespace hostgpu {

namespace {

std::deque<GLenum>& queue() {
    thread_local std::deque<GLenum> errors;
    return errors;
}

}  // namespace

void GlErrorQueue::push(GLenum error) {
    queue().push_back(error);
}

bool GlErrorQueue::take(GLenum* error) {
    std::deque<GLenum>& errors = queue();
    if (errors.empty()) {
        return false;
    }
    *error = errors.front();
    errors.pop_front();
    return true;
}

}  // namespace hostgpu
}  // namespace zel
