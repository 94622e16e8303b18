// zel-info: creates an OpenGL ES 3 context through the host GPU layer and prints what the driver
// offers. Exit status 0 when a context could be made current, 1 otherwise.
#include <cstdio>
#include <cstring>
#include <memory>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl3.h>

#include <zel/host/Gpu.h>

namespace {

// EGL handles are pointers: unique_ptr with a deleter releases them on every return path.
template <typename Deleter>
using EglHandle = std::unique_ptr<void, Deleter>;

int fail(const char* what) {
    fprintf(stderr, "zel-info: %s (EGL error 0x%04x)\n", what,
            static_cast<unsigned>(eglGetError()));
    return 1;
}

const char* orNone(const char* text) {
    return text != nullptr ? text : "(none)";
}

const char* glString(GLenum name) {
    return orNone(reinterpret_cast<const char*>(glGetString(name)));
}

// Extension lists, one name per line under the heading.
void printList(const char* heading, const char* list) {
    printf("%s:\n", heading);
    if (list == nullptr) {
        printf("    (none)\n");
        return;
    }
    const char* name = list;
    while (*name != '\0') {
        while (*name == ' ') {
            ++name;
        }
        const size_t length = strcspn(name, " ");
        if (length > 0) {
            printf("    %.*s\n", static_cast<int>(length), name);
        }
        name += length;
    }
}

}  // namespace

int main() {
    EGLDisplay display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    if (display == EGL_NO_DISPLAY) {
        return fail("no EGL display");
    }
    if (!eglInitialize(display, nullptr, nullptr)) {
        fprintf(stderr, "zel-info: %s\n", zel::host::gpuUnavailableReason().c_str());
        return fail("eglInitialize failed");
    }
    auto terminate = [](EGLDisplay d) { eglTerminate(d); };
    EglHandle<decltype(terminate)> displayGuard(display, terminate);

    EGLint configCount = 0;
    eglGetConfigs(display, nullptr, 0, &configCount);
    const EGLint configAttribs[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_ES3_BIT, EGL_SURFACE_TYPE,
                                    EGL_PBUFFER_BIT, EGL_NONE};
    EGLint matching = 0;
    eglChooseConfig(display, configAttribs, nullptr, 0, &matching);
    EGLConfig config = nullptr;
    EGLint chosen = 0;
    if (!eglChooseConfig(display, configAttribs, &config, 1, &chosen) || chosen < 1) {
        return fail("no OpenGL ES 3 config");
    }
    if (!eglBindAPI(EGL_OPENGL_ES_API)) {
        return fail("eglBindAPI(EGL_OPENGL_ES_API) failed");
    }
    const EGLint contextAttribs[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_NONE};
    EGLContext context = eglCreateContext(display, config, EGL_NO_CONTEXT, contextAttribs);
    if (context == EGL_NO_CONTEXT) {
        return fail("cannot create an OpenGL ES 3 context");
    }
    auto destroy = [display](EGLContext c) {
        eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        eglDestroyContext(display, c);
    };
    EglHandle<decltype(destroy)> contextGuard(context, destroy);
    if (!eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context)) {
        return fail("cannot make the context current");
    }

    printf("EGL version:      %s\n", orNone(eglQueryString(display, EGL_VERSION)));
    printf("EGL vendor:       %s\n", orNone(eglQueryString(display, EGL_VENDOR)));
    printf("EGL client APIs:  %s\n", orNone(eglQueryString(display, EGL_CLIENT_APIS)));
    printf("EGL configs:      %d (%d for OpenGL ES 3)\n", configCount, matching);
    printf("GL vendor:        %s\n", glString(GL_VENDOR));
    printf("GL renderer:      %s\n", glString(GL_RENDERER));
    printf("GL version:       %s\n", glString(GL_VERSION));
    printf("GLSL version:     %s\n", glString(GL_SHADING_LANGUAGE_VERSION));
    printList("EGL extensions", eglQueryString(display, EGL_EXTENSIONS));
    printList("GL extensions", glString(GL_EXTENSIONS));
    return 0;
}
