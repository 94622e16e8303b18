/*
 * GL names that the client generated and has not deleted yet, of one kind (buffers, textures,
 * programs, framebuffers), reflected in one live counter. Names the set does not hold are ignored
 * on deletion, as the driver ignores them; whatever is left when the set goes (with its share
 * group or context) leaves the counter with it. Not locked: the owner guards it.
 */
#pragma once

#include <set>

#include "Counters.h"
#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class LiveNames {
public:
    explicit LiveNames(Counter counter) : mCounter(counter) {}
    ~LiveNames();
    LiveNames(const LiveNames&) = delete;
    LiveNames& operator=(const LiveNames&) = delete;

    void add(GLsizei count, const GLuint* names);
    void add(GLuint name) { add(1, &name); }
    void forget(GLsizei count, const GLuint* names);
    void forget(GLuint name) { forget(1, &name); }

private:
    const Counter mCounter;
    std::set<GLuint> mNames;
};

}  // namespace hostgpu
}  // namespace zel
