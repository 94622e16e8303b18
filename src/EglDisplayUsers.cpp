#include "EglDisplayUsers.h"

#include <map>
#include <mutex>

#include "Log.h"

namespace kav {
namespace zel {

namespace {

constexpr const char kLogFile[] = "src/EglDisplayUsers";

// Never destroyed: renderers may still go away while the process exits.
std::mutex& usersMutex() {
    static std::mutex* const mutex = new std::mutex;
    return *mutex;
}

std::map<EGLDisplay, size_t>& users() {
    static auto* const table = new std::map<EGLDisplay, size_t>;
    return *table;
}

}  // namespace

bool EglDisplayUsers::acquire(EGLDisplay display) {
    // Held across eglInitialize, so that a second renderer never sees a display that is still
    // coming up, nor one that is being terminated.
    std::lock_guard<std::mutex> lock(usersMutex());
    size_t& count = users()[display];
    if (count == 0 && !eglInitialize(display, nullptr, nullptr)) {
        users().erase(display);
        return false;
    }
    ++count;
    return true;
}

void EglDisplayUsers::release(EGLDisplay display) {
    std::lock_guard<std::mutex> lock(usersMutex());
    const auto entry = users().find(display);
    if (entry == users().end()) {
        ZEL_LOGE("display %p has no users", display);
        return;
    }
    if (--entry->second == 0) {
        users().erase(entry);
        eglTerminate(display);
        ZEL_CHECK_EGL();
    }
}

size_t EglDisplayUsers::count(EGLDisplay display) {
    std::lock_guard<std::mutex> lock(usersMutex());
    const auto entry = users().find(display);
    return entry != users().end() ? entry->second : 0;
}

}  // namespace zel
}  // namespace kav
