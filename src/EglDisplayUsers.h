/*
 * Who uses which EGL display in this process. Every GLES renderer holds one use of its display
 * from creation to destruction; a creation that fails gives back only its own. The first use
 * initialises the display and the last one terminates it, so one eglInitialize is matched by one
 * eglTerminate whether or not the driver counts them itself: a driver that does not would
 * otherwise lose the display of every other renderer at the first eglTerminate.
 */
#pragma once

#include <stddef.h>

#include <EGL/egl.h>

namespace kav {
namespace zel {

class EglDisplayUsers {
public:
    // Takes one use of |display|, initialising it when it is the first. False (nothing taken)
    // when the display cannot be initialised; eglGetError() then tells why.
    static bool acquire(EGLDisplay display);
    // Gives one use back, terminating the display with the last one.
    static void release(EGLDisplay display);
    // Uses held now.
    static size_t count(EGLDisplay display);
};

}  // namespace zel
}  // namespace kav
