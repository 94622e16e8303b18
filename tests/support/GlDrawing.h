/*
 * GL helpers for tests that draw with graphic buffers: an EGLImage of a buffer on an external
 * texture, a framebuffer that renders into one, a program, a full-screen quad, and the shader text
 * the library generates for its three conversion shapes (written out as the library prints it).
 * Everything is released by its destructor; a context must be current throughout.
 */
#pragma once

#ifndef EGL_EGLEXT_PROTOTYPES
#define EGL_EGLEXT_PROTOTYPES 1
#endif
#ifndef GL_GLEXT_PROTOTYPES
#define GL_GLEXT_PROTOTYPES 1
#endif

#include <string>
#include <vector>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl32.h>
#include <GLES2/gl2ext.h>
#include <ui/GraphicBuffer.h>

#include "PixelMatch.h"

namespace zel {
namespace test {

// An EGLImage of `buffer` (EGL_IMAGE_PRESERVED_KHR plus `attribs`) on a new external texture.
class ExternalImage {
public:
    ExternalImage(EGLDisplay display, android::GraphicBuffer& buffer,
                  std::vector<EGLint> attribs = {});
    ~ExternalImage();
    ExternalImage(const ExternalImage&) = delete;
    ExternalImage& operator=(const ExternalImage&) = delete;

    bool ok() const { return mImage != EGL_NO_IMAGE_KHR; }
    GLuint texture() const { return mTexture; }
    EGLImageKHR image() const { return mImage; }
    // Binds the texture on `unit` with `filter` as its min and mag filter; unit 0 is active after.
    void bind(GLenum unit, GLenum filter = GL_NEAREST) const;

private:
    EGLDisplay mDisplay;
    EGLImageKHR mImage = EGL_NO_IMAGE_KHR;
    GLuint mTexture = 0;
};

// A framebuffer that renders into the image of an external texture (bound on GL_FRAMEBUFFER,
// viewport set to the given size).
class ImageFramebuffer {
public:
    ImageFramebuffer(const ExternalImage& image, int width, int height);
    ~ImageFramebuffer();
    ImageFramebuffer(const ImageFramebuffer&) = delete;
    ImageFramebuffer& operator=(const ImageFramebuffer&) = delete;

private:
    GLuint mFramebuffer = 0;
};

// Attributes named aPosition and aTexCoord get the Quad's locations unless the shader sets them.
class Program {
public:
    Program(const std::string& vertex, const std::string& fragment);
    ~Program() { glDeleteProgram(mProgram); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    GLuint name() const { return mProgram; }
    // Compile and link messages; empty when the program linked.
    const std::string& error() const { return mError; }
    void use() const { glUseProgram(mProgram); }

private:
    GLuint mProgram = 0;
    std::string mError;
};

// Four vertices over clip space [-1,1]^2 as a triangle strip: aPosition at location 0 and, at
// location 1, texture coordinates (position + 1) / 2.
class Quad {
public:
    Quad();
    ~Quad();
    Quad(const Quad&) = delete;
    Quad& operator=(const Quad&) = delete;

    void draw() const;

private:
    GLuint mVertexArray = 0;
    GLuint mBuffer = 0;
};

// The library's shaders.
enum class ShaderShape {
    ToRgba,    // samplerExternalOES into an RGBA destination
    YuvToYuv,  // __samplerExternal2DY2YEXT into a layout(yuv) output
    RgbToYuv,  // rgb_2_yuv of an RGBA source into a layout(yuv) output
};
// Texture coordinates from the position; with `projection`, positions go through uProjection.
std::string libraryVertexShader(bool projection = false);
std::string libraryFragmentShader(ShaderShape shape, const char* constant = "itu_601");
// The yuvCscStandardEXT constant of a colour space ("itu_709_full_range" ...).
const char* yuvConstantOf(const ColourSpace& space);
// Draws `source` (sampled with `filter`) into `destination` with the library's shader of `shape`
// and waits for it. The viewport is width x height, by default the destination's size.
void libraryDraw(android::GraphicBuffer& source, android::GraphicBuffer& destination,
                 ShaderShape shape, const char* constant = "itu_601", GLenum filter = GL_NEAREST,
                 std::vector<EGLint> sourceAttribs = {},
                 std::vector<EGLint> destinationAttribs = {}, int width = 0, int height = 0);

// A buffer of the host gralloc with CPU and GPU usage.
android::sp<android::GraphicBuffer> makeTestBuffer(int width, int height, int32_t format);

}  // namespace test
}  // namespace zel
