#include "LiveNames.h"

namespace zel {
namespace hostgpu {

LiveNames::~LiveNames() {
    Counters::add(mCounter, -static_cast<int64_t>(mNames.size()));
}

void LiveNames::add(GLsizei count, const GLuint* names) {
    for (GLsizei i = 0; i < count; ++i) {
        if (names[i] != 0 && mNames.insert(names[i]).second) {
            Counters::add(mCounter);
        }
    }
}

void LiveNames::forget(GLsizei count, const GLuint* names) {
    for (GLsizei i = 0; i < count; ++i) {
        if (mNames.erase(names[i]) != 0) {
            Counters::add(mCounter, -1);
        }
    }
}

}  // namespace hostgpu
}  // namespace zel
