#include "GlDrawing.h"

#include <gtest/gtest.h>
#include <hardware/gralloc.h>

namespace zel {
namespace test {

ExternalImage::ExternalImage(EGLDisplay display, android::GraphicBuffer& buffer,
                             std::vector<EGLint> attribs)
    : mDisplay(display) {
    attribs.insert(attribs.begin(), {EGL_IMAGE_PRESERVED_KHR, EGL_TRUE});
    attribs.push_back(EGL_NONE);
    mImage =
        eglCreateImageKHR(display, EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID,
                          static_cast<EGLClientBuffer>(buffer.getNativeBuffer()), attribs.data());
    EXPECT_NE(mImage, EGL_NO_IMAGE_KHR) << "eglCreateImageKHR: 0x" << std::hex << eglGetError();
    glGenTextures(1, &mTexture);
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, mTexture);
    glEGLImageTargetTexture2DOES(GL_TEXTURE_EXTERNAL_OES, mImage);
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, 0);
}

ExternalImage::~ExternalImage() {
    glDeleteTextures(1, &mTexture);
    if (mImage != EGL_NO_IMAGE_KHR) {
        eglDestroyImageKHR(mDisplay, mImage);
    }
}

void ExternalImage::bind(GLenum unit, GLenum filter) const {
    glActiveTexture(unit);
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, mTexture);
    glTexParameteri(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_MIN_FILTER, static_cast<GLint>(filter));
    glTexParameteri(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_MAG_FILTER, static_cast<GLint>(filter));
    glActiveTexture(GL_TEXTURE0);
}

ImageFramebuffer::ImageFramebuffer(const ExternalImage& image, int width, int height) {
    glGenFramebuffers(1, &mFramebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, mFramebuffer);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_EXTERNAL_OES,
                           image.texture(), 0);
    EXPECT_EQ(glCheckFramebufferStatus(GL_FRAMEBUFFER), GLenum(GL_FRAMEBUFFER_COMPLETE));
    glViewport(0, 0, width, height);
}

ImageFramebuffer::~ImageFramebuffer() {
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &mFramebuffer);
}

Program::Program(const std::string& vertex, const std::string& fragment) {
    char log[2048];
    mProgram = glCreateProgram();
    for (const auto& [type, source] : {std::make_pair(GL_VERTEX_SHADER, &vertex),
                                       std::make_pair(GL_FRAGMENT_SHADER, &fragment)}) {
        const GLuint shader = glCreateShader(type);
        const char* text = source->c_str();
        glShaderSource(shader, 1, &text, nullptr);
        glCompileShader(shader);
        GLint compiled = GL_FALSE;
        glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
        if (compiled != GL_TRUE) {
            glGetShaderInfoLog(shader, sizeof(log), nullptr, log);
            mError += log;
        }
        glAttachShader(mProgram, shader);
        glDeleteShader(shader);
    }
    glBindAttribLocation(mProgram, 0, "aPosition");
    glBindAttribLocation(mProgram, 1, "aTexCoord");
    glLinkProgram(mProgram);
    GLint linked = GL_FALSE;
    glGetProgramiv(mProgram, GL_LINK_STATUS, &linked);
    if (linked != GL_TRUE) {
        glGetProgramInfoLog(mProgram, sizeof(log), nullptr, log);
        mError += log;
    }
}

Quad::Quad() {
    const GLfloat vertices[] = {-1, -1, 0, 0, 1, -1, 1, 0, -1, 1, 0, 1, 1, 1, 1, 1};
    glGenVertexArrays(1, &mVertexArray);
    glBindVertexArray(mVertexArray);
    glGenBuffers(1, &mBuffer);
    glBindBuffer(GL_ARRAY_BUFFER, mBuffer);
    glBufferData(GL_ARRAY_BUFFER, sizeof(vertices), vertices, GL_STATIC_DRAW);
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 16, nullptr);
    glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 16, reinterpret_cast<const void*>(8));
    glEnableVertexAttribArray(0);
    glEnableVertexAttribArray(1);
    glBindVertexArray(0);
}

Quad::~Quad() {
    glDeleteBuffers(1, &mBuffer);
    glDeleteVertexArrays(1, &mVertexArray);
}

void Quad::draw() const {
    glBindVertexArray(mVertexArray);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    glBindVertexArray(0);
}

std::string libraryVertexShader(bool projection) {
    return std::string(
               "#version 310 es\n"
               "precision highp float;\n"
               "layout (location = 0) in vec2 aPosition;\n"
               "out vec2 vTexCoords;\n") +
           (projection ? "uniform mat4 uProjection;\n" : "") + "void main(void) {\n" +
           (projection ? "    gl_Position = uProjection * vec4(aPosition, 0.0, 1.0);\n"
                       : "    gl_Position = vec4(aPosition, 0.0, 1.0);\n") +
           "    vTexCoords = vec2((aPosition.x+1.0)*0.5, (aPosition.y+1.0)*0.5);\n"
           "}\n";
}

std::string libraryFragmentShader(ShaderShape shape, const char* constant) {
    const bool toRgba = shape == ShaderShape::ToRgba;
    return std::string(
               "#version 310 es\n"
               "#extension GL_OES_EGL_image_external_essl3 : require\n") +
           (toRgba ? "" : "#extension GL_EXT_YUV_target : require\n") + "precision highp float;\n" +
           (toRgba ? "layout(binding = 0) uniform samplerExternalOES uTexture0;\n"
                   : "layout(binding = 0) uniform __samplerExternal2DY2YEXT uTexture0;\n") +
           "in vec2 vTexCoords;\n" + (toRgba ? "" : "layout(yuv) ") +
           "out vec4 fragColor;\n"
           "void main(void) {\n" +
           (shape == ShaderShape::RgbToYuv
                ? std::string(
                      "    vec4 src0 = vec4(rgb_2_yuv(texture(uTexture0, vTexCoords).rgb, ") +
                      constant + "), 1.0);\n"
                : std::string("    vec4 src0 = texture(uTexture0, vTexCoords);\n")) +
           "    fragColor = src0;\n"
           "}\n";
}

const char* yuvConstantOf(const ColourSpace& space) {
    static const char* const kConstants[][2] = {{"itu_601", "itu_601_full_range"},
                                                {"itu_709", "itu_709_full_range"},
                                                {"itu_2020", "itu_2020_full_range"}};
    return kConstants[static_cast<int>(space.standard)][space.fullRange ? 1 : 0];
}

void libraryDraw(android::GraphicBuffer& source, android::GraphicBuffer& destination,
                 ShaderShape shape, const char* constant, GLenum filter,
                 std::vector<EGLint> sourceAttribs, std::vector<EGLint> destinationAttribs,
                 int width, int height) {
    Program program(libraryVertexShader(), libraryFragmentShader(shape, constant));
    EXPECT_EQ(program.error(), "");
    ExternalImage sourceImage(eglGetCurrentDisplay(), source, std::move(sourceAttribs));
    ExternalImage destinationImage(eglGetCurrentDisplay(), destination,
                                   std::move(destinationAttribs));
    sourceImage.bind(GL_TEXTURE0, filter);
    ImageFramebuffer framebuffer(destinationImage,
                                 width > 0 ? width : static_cast<int>(destination.getWidth()),
                                 height > 0 ? height : static_cast<int>(destination.getHeight()));
    program.use();
    Quad().draw();
    glFinish();
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

android::sp<android::GraphicBuffer> makeTestBuffer(int width, int height, int32_t format) {
    constexpr uint64_t kUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN |
                                GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_HW_RENDER;
    android::sp<android::GraphicBuffer> buffer = new android::GraphicBuffer(
        static_cast<uint32_t>(width), static_cast<uint32_t>(height), format, 1, kUsage, "yuv-test");
    EXPECT_EQ(buffer->initCheck(), android::NO_ERROR);
    return buffer;
}

}  // namespace test
}  // namespace zel
