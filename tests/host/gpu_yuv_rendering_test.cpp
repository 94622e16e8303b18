// How the GPU layer's YUV support behaves beyond the conversions themselves: the extension is
// advertised, the GL_EXT_YUV_target built-ins follow the formulas without clamping, rendering into
// YUV buffers keeps what a draw does not cover, crops select what is sampled and rendered, the
// chroma-top-left profile, and the program variants that sample YUV images (cached, fed with the
// client's uniforms, following the buffer's dataspace at each draw).
#include <cmath>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <system/graphics.h>
#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>
#include <zel/host/Gpu.h>

#include "EglContext.h"
#include "GlDrawing.h"
#include "ReferenceConverter.h"

using android::GraphicBuffer;
using android::sp;
using zel::test::ColourSpace;
using zel::test::ExternalImage;
using zel::test::ImageFramebuffer;
using zel::test::Program;
using zel::test::Quad;
using zel::test::RgbImage;
using zel::test::ShaderShape;
using zel::test::YuvImage;
using zel::test::YuvStandard;

namespace {

constexpr ColourSpace kBt601 = {YuvStandard::Bt601, false};

class YuvRendering : public testing::Test {
protected:
    void SetUp() override {
        if (!zel::host::gpuAvailable()) {
            GTEST_SKIP() << "no usable EGL driver: " << zel::host::gpuUnavailableReason();
        }
        startContext();
    }

    void startContext() {
        mContext.reset();
        mContext = std::make_unique<zel::test::EglContext>();
        ASSERT_TRUE(mContext->ok()) << mContext->failure();
    }

    EGLDisplay display() const { return mContext->display(); }

    std::unique_ptr<zel::test::EglContext> mContext;
};

TEST_F(YuvRendering, ExtensionIsInBothExtensionQueries) {
    const std::string extensions = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    EXPECT_NE((" " + extensions + " ").find(" GL_EXT_YUV_target "), std::string::npos);
    EXPECT_NE(extensions.find("GL_OES_EGL_image_external_essl3"), std::string::npos);
    GLint count = 0;
    glGetIntegerv(GL_NUM_EXTENSIONS, &count);
    int found = 0;
    for (GLint i = 0; i < count; ++i) {
        const GLubyte* name = glGetStringi(GL_EXTENSIONS, static_cast<GLuint>(i));
        ASSERT_NE(name, nullptr) << i;
        found += std::strcmp(reinterpret_cast<const char*>(name), "GL_EXT_YUV_target") == 0;
    }
    EXPECT_EQ(found, 1);
    EXPECT_EQ(glGetStringi(GL_EXTENSIONS, static_cast<GLuint>(count)), nullptr);
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_VALUE));
}

TEST_F(YuvRendering, ShaderTextKeepsItsLineNumbersAndExtensionOrder) {
    auto compile = [](const std::string& source, std::string* log) {
        const GLuint shader = glCreateShader(GL_FRAGMENT_SHADER);
        const char* text = source.c_str();
        glShaderSource(shader, 1, &text, nullptr);
        glCompileShader(shader);
        GLint compiled = GL_FALSE;
        glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
        char buffer[2048] = {};
        glGetShaderInfoLog(shader, sizeof(buffer), nullptr, buffer);
        *log = buffer;
        glDeleteShader(shader);
        return compiled == GL_TRUE;
    };
    // The built-ins go after the last #extension line, whichever extension it names; the yuv
    // qualifier goes from a list and leaves the rest.
    for (const char* extensions :
         {"#extension GL_EXT_YUV_target : require\n#extension GL_EXT_texture_buffer : enable\n",
          "#extension GL_EXT_texture_buffer : enable\n#extension GL_EXT_YUV_target : require\n"}) {
        const std::string head = std::string("#version 310 es\n") + extensions +
                                 "precision highp float;\nlayout(location = 0, yuv) out vec4 c;\n";
        std::string log;
        EXPECT_TRUE(
            compile(head + "void main() { c = vec4(rgb_2_yuv(vec3(1.0), itu_709), 1.0); }\n", &log))
            << log;
        // Errors name the client's own line (6).
        EXPECT_FALSE(compile(head + "void main() { c = vec4(undefinedThing, 1.0); }\n", &log));
        EXPECT_NE(log.find(":6("), std::string::npos) << log;
    }
}

TEST_F(YuvRendering, BuiltInsFollowTheFormulasWithoutClamping) {
    // Floating-point output, so that values beyond [0,1] show.
    GLuint texture = 0;
    GLuint framebuffer = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA32F, 2, 1);
    glGenFramebuffers(1, &framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    ASSERT_EQ(glCheckFramebufferStatus(GL_FRAMEBUFFER), GLenum(GL_FRAMEBUFFER_COMPLETE));
    glViewport(0, 0, 2, 1);
    Quad quad;
    const zel::test::Rgb colours[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}, {0.2, 0.7, 0.4}};
    const ColourSpace spaces[] = {{YuvStandard::Bt601, false},  {YuvStandard::Bt601, true},
                                  {YuvStandard::Bt709, false},  {YuvStandard::Bt709, true},
                                  {YuvStandard::Bt2020, false}, {YuvStandard::Bt2020, true}};
    for (const ColourSpace& space : spaces) {
        // Pixel 0: rgb_2_yuv; pixel 1: yuv_2_rgb of the colour taken as YUV. The standard goes
        // through a variable of the extension's type.
        const std::string fragment =
            std::string("#version 310 es\n#extension GL_EXT_YUV_target : require\n") +
            "precision highp float;\nuniform vec3 uColour;\nout vec4 fragColor;\n"
            "void main() {\n    yuvCscStandardEXT standard = " +
            zel::test::yuvConstantOf(space) +
            ";\n    fragColor = vec4(gl_FragCoord.x < 1.0 ? rgb_2_yuv(uColour, standard) : "
            "yuv_2_rgb(uColour, standard), 1.0);\n}\n";
        Program program(zel::test::libraryVertexShader(), fragment);
        ASSERT_EQ(program.error(), "") << fragment;
        program.use();
        for (const zel::test::Rgb& colour : colours) {
            glUniform3f(glGetUniformLocation(program.name(), "uColour"), float(colour.r),
                        float(colour.g), float(colour.b));
            quad.draw();
            float pixels[8] = {};
            glReadPixels(0, 0, 2, 1, GL_RGBA, GL_FLOAT, pixels);
            const zel::test::Yuv yuv = zel::test::yuvFromRgb(space, colour);
            const zel::test::Rgb rgb = zel::test::rgbFromYuv(space, {colour.r, colour.g, colour.b});
            const double expected[6] = {yuv.y, yuv.cb, yuv.cr, rgb.r, rgb.g, rgb.b};
            const float actual[6] = {pixels[0], pixels[1], pixels[2],
                                     pixels[4], pixels[5], pixels[6]};
            for (int i = 0; i < 6; ++i) {
                EXPECT_NEAR(actual[i], expected[i], 2e-5)
                    << zel::test::nameOf(space) << " colour " << colour.r << "," << colour.g << ","
                    << colour.b << " component " << i;
            }
        }
    }
    glDeleteFramebuffers(1, &framebuffer);
    glDeleteTextures(1, &texture);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(YuvRendering, PixelsOutsideTheDrawKeepTheBufferContents) {
    const int width = 64;
    const int height = 48;
    const RgbImage drawn = zel::test::gradient(width, height);
    for (int32_t format :
         {int32_t{HAL_PIXEL_FORMAT_YCBCR_420_888}, int32_t{HAL_PIXEL_FORMAT_YCBCR_P010}}) {
        SCOPED_TRACE(testing::Message() << "format 0x" << std::hex << format);
        const int depth = zel::test::bitDepthOf(format);
        sp<GraphicBuffer> source =
            zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888);
        sp<GraphicBuffer> destination = zel::test::makeTestBuffer(width, height, format);
        zel::test::writeRgba(*source, drawn);
        const YuvImage before =
            zel::test::encode(zel::test::noise(width, height, 5), kBt601, depth);
        zel::test::writePlanes(*destination, before);
        const YuvImage rendered = zel::test::encode(drawn, kBt601, depth);

        Program program(zel::test::libraryVertexShader(),
                        zel::test::libraryFragmentShader(ShaderShape::RgbToYuv));
        ASSERT_EQ(program.error(), "");
        ExternalImage sourceImage(display(), *source);
        ExternalImage destinationImage(display(), *destination);
        sourceImage.bind(GL_TEXTURE0);
        ImageFramebuffer framebuffer(destinationImage, width, height);
        program.use();
        Quad quad;
        zel::host::resetGpuCounters();

        // The whole source into the left half (pixels 0..31, chroma blocks 0..15): pixel x shows
        // source pixel 2x + 1 (nearest).
        glViewport(0, 0, width / 2, height);
        quad.draw();
        glFlush();
        EXPECT_EQ(zel::host::gpuCounters().writeBacks, 1u);
        RgbImage squeezed(width / 2, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width / 2; ++x) {
                squeezed.at(x, y) = drawn.at(2 * x + 1, y);
            }
        }
        YuvImage actual = zel::test::readPlanes(*destination);
        EXPECT_TRUE(zel::test::planesMatch(actual.cropped(width / 2, 0, width / 2, height),
                                           before.cropped(width / 2, 0, width / 2, height), 0, 0));
        EXPECT_TRUE(zel::test::planesMatch(actual.cropped(0, 0, width / 2, height),
                                           zel::test::encode(squeezed, kBt601, depth), 1, 2));

        YuvImage expected;
        auto takeColumns = [&](const YuvImage& from, int first, int last) {
            for (int y = 0; y < height; ++y) {
                for (int x = first; x < last; ++x) {
                    expected.lumaAt(x, y) = from.lumaAt(x, y);
                }
            }
            for (int j = 0; j < height / 2; ++j) {
                for (int i = first / 2; i < last / 2; ++i) {
                    expected.cbAt(i, j) = from.cbAt(i, j);
                    expected.crAt(i, j) = from.crAt(i, j);
                }
            }
        };
        // The CPU rewrites the right half; a full-width draw clipped by the scissor to the right
        // half replaces it there and leaves the left half as it is.
        const YuvImage cpu = zel::test::encode(zel::test::noise(width, height, 9), kBt601, depth);
        expected = actual;
        takeColumns(cpu, width / 2, width);
        zel::test::writePlanes(*destination, expected);
        takeColumns(rendered, width / 2, width);
        const uint64_t uploads = zel::host::gpuCounters().uploads;
        glViewport(0, 0, width, height);
        glEnable(GL_SCISSOR_TEST);
        glScissor(width / 2, 0, width / 2, height);
        quad.draw();
        glDisable(GL_SCISSOR_TEST);
        EXPECT_EQ(zel::host::gpuCounters().uploads, uploads + 1);  // the CPU's new contents
        glFinish();
        EXPECT_TRUE(zel::test::planesMatch(zel::test::readPlanes(*destination), expected, 1, 2));
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    }
}

TEST_F(YuvRendering, ChromaTopLeftProfileKeepsTheFirstSampleOfEachBlock) {
    ASSERT_TRUE(zel::host::setDriverProfile("chroma-top-left"));
    startContext();  // contexts take the profile when they are created
    const RgbImage image = zel::test::noise(38, 20, 21);
    sp<GraphicBuffer> source = zel::test::makeTestBuffer(38, 20, HAL_PIXEL_FORMAT_RGBA_8888);
    zel::test::writeRgba(*source, image);
    for (int32_t format : {int32_t{HAL_PIXEL_FORMAT_YCRCB_420_SP},
                           int32_t{HAL_PIXEL_FORMAT_YCBCR_P010}, int32_t{HAL_PIXEL_FORMAT_YV12}}) {
        SCOPED_TRACE(testing::Message() << "format 0x" << std::hex << format);
        const int depth = zel::test::bitDepthOf(format);
        sp<GraphicBuffer> destination = zel::test::makeTestBuffer(38, 20, format);
        zel::test::poisonBuffer(*destination);
        {
            Program program(zel::test::libraryVertexShader(),
                            zel::test::libraryFragmentShader(ShaderShape::RgbToYuv));
            ExternalImage sourceImage(display(), *source);
            ExternalImage destinationImage(display(), *destination);
            sourceImage.bind(GL_TEXTURE0);
            ImageFramebuffer framebuffer(destinationImage, 38, 20);
            program.use();
            Quad().draw();
            glFinish();
        }
        const YuvImage planes = zel::test::readPlanes(*destination);
        EXPECT_TRUE(zel::test::planesMatch(
            planes, zel::test::encode(image, kBt601, depth, zel::test::ChromaSiting::TopLeft), 1,
            1));
        // Noise has no two alike pixels in a block: the average would be far off.
        EXPECT_FALSE(zel::test::planesMatch(planes, zel::test::encode(image, kBt601, depth), 1, 2));
    }
}

TEST_F(YuvRendering, CropSelectsWhatIsSampledAndWhatIsRendered) {
    const int width = 64;
    const int height = 48;
    sp<GraphicBuffer> yuv = zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_YV12);
    zel::test::fillBuffer(*yuv, zel::test::noise(width, height, 17), 0);
    const YuvImage planes = zel::test::readPlanes(*yuv);
    const RgbImage whole = zel::test::decode(planes, kBt601);
    Program toRgba(zel::test::libraryVertexShader(),
                   zel::test::libraryFragmentShader(ShaderShape::ToRgba));
    ASSERT_EQ(toRgba.error(), "");
    Quad quad;

    // Even and odd crop origins: each pixel keeps the chroma of its block in the buffer.
    struct Crop {
        int left, top, right, bottom;
    };
    for (const Crop& crop : {Crop{4, 2, 36, 18}, Crop{3, 1, 30, 16}}) {
        SCOPED_TRACE(testing::Message() << "crop at " << crop.left << "," << crop.top);
        const int w = crop.right - crop.left;
        const int h = crop.bottom - crop.top;
        sp<GraphicBuffer> rgba = zel::test::makeTestBuffer(w, h, HAL_PIXEL_FORMAT_RGBA_8888);
        zel::test::poisonBuffer(*rgba);
        ExternalImage source(
            display(), *yuv,
            {EGL_IMAGE_CROP_LEFT_ANDROID, crop.left, EGL_IMAGE_CROP_TOP_ANDROID, crop.top,
             EGL_IMAGE_CROP_RIGHT_ANDROID, crop.right, EGL_IMAGE_CROP_BOTTOM_ANDROID, crop.bottom});
        ExternalImage destination(display(), *rgba);
        source.bind(GL_TEXTURE0);
        ImageFramebuffer framebuffer(destination, w, h);
        toRgba.use();
        quad.draw();
        glFinish();
        RgbImage expected(w, h);
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                expected.at(x, y) = whole.at(crop.left + x, crop.top + y);
            }
        }
        EXPECT_TRUE(zel::test::imagesMatch(zel::test::readRgba(*rgba), expected, 1));
    }

    // Rendering into a crop of a YUV buffer writes that rectangle only.
    const RgbImage drawn = zel::test::gradient(32, 32);
    sp<GraphicBuffer> rgba = zel::test::makeTestBuffer(32, 32, HAL_PIXEL_FORMAT_RGBA_8888);
    zel::test::writeRgba(*rgba, drawn);
    {
        Program toYuv(zel::test::libraryVertexShader(),
                      zel::test::libraryFragmentShader(ShaderShape::RgbToYuv));
        ExternalImage source(display(), *rgba);
        ExternalImage destination(
            display(), *yuv,
            {EGL_IMAGE_CROP_LEFT_ANDROID, 8, EGL_IMAGE_CROP_TOP_ANDROID, 4,
             EGL_IMAGE_CROP_RIGHT_ANDROID, 40, EGL_IMAGE_CROP_BOTTOM_ANDROID, 36});
        source.bind(GL_TEXTURE0);
        ImageFramebuffer framebuffer(destination, 32, 32);
        toYuv.use();
        quad.draw();
        glFinish();
    }
    YuvImage expected = planes;
    const YuvImage inside = zel::test::encode(drawn, kBt601, 8);
    for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 32; ++x) {
            expected.lumaAt(8 + x, 4 + y) = inside.lumaAt(x, y);
        }
    }
    for (int j = 0; j < 16; ++j) {
        for (int i = 0; i < 16; ++i) {
            expected.cbAt(4 + i, 2 + j) = inside.cbAt(i, j);
            expected.crAt(4 + i, 2 + j) = inside.crAt(i, j);
        }
    }
    EXPECT_TRUE(zel::test::planesMatch(zel::test::readPlanes(*yuv), expected, 1, 2));
}

TEST_F(YuvRendering, VariantsAreCachedFollowTheDataspaceAndSeeTheClientsUniforms) {
    const int width = 36;
    const int height = 20;
    const RgbImage image = zel::test::noise(width, height, 31);
    sp<GraphicBuffer> nv12 =
        zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_YCBCR_420_888);
    sp<GraphicBuffer> nv21 =
        zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_YCRCB_420_SP);
    sp<GraphicBuffer> rgba = zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888);
    zel::test::fillBuffer(*nv12, image, 0);
    zel::test::fillBuffer(*nv21, image, 0);
    // The projection flips rows: the variant must take the client's uniform value.
    Program program(zel::test::libraryVertexShader(true),
                    zel::test::libraryFragmentShader(ShaderShape::ToRgba));
    ASSERT_EQ(program.error(), "");
    program.use();
    const GLfloat flip[16] = {1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    glUniformMatrix4fv(glGetUniformLocation(program.name(), "uProjection"), 1, GL_FALSE, flip);
    ExternalImage nv12Image(display(), *nv12);
    ExternalImage nv21Image(display(), *nv21);
    ExternalImage destination(display(), *rgba);
    ImageFramebuffer framebuffer(destination, width, height);
    Quad quad;
    auto drawAndCheck = [&](const ExternalImage& source, GraphicBuffer& buffer) {
        zel::test::poisonBuffer(*rgba);
        source.bind(GL_TEXTURE0);
        quad.draw();
        glFinish();
        const RgbImage decoded = zel::test::decode(
            zel::test::readPlanes(buffer), zel::test::colourSpaceOf([&] {
                android::ui::Dataspace dataspace;
                android::GraphicBufferMapper::get().getDataspace(buffer.handle, &dataspace);
                return static_cast<int32_t>(dataspace);
            }()));
        RgbImage flipped(width, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                flipped.at(x, y) = decoded.at(x, height - 1 - y);
            }
        }
        return zel::test::imagesMatch(zel::test::readRgba(*rgba), flipped, 1);
    };
    const uint64_t variants = zel::host::gpuCounters().programVariants;
    EXPECT_TRUE(drawAndCheck(nv12Image, *nv12));
    EXPECT_TRUE(drawAndCheck(nv21Image, *nv21));
    EXPECT_TRUE(drawAndCheck(nv12Image, *nv12));
    EXPECT_EQ(zel::host::gpuCounters().programVariants, variants + 2);
    // The dataspace is read at each draw: BT.709 full range needs a variant of its own.
    android::GraphicBufferMapper::get().setDataspace(
        nv12->handle,
        static_cast<android::ui::Dataspace>(zel::test::dataspaceOf({YuvStandard::Bt709, true})));
    EXPECT_TRUE(drawAndCheck(nv12Image, *nv12));
    EXPECT_EQ(zel::host::gpuCounters().programVariants, variants + 3);
    // The client's program is current again after each draw.
    GLint current = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &current);
    EXPECT_EQ(current, static_cast<GLint>(program.name()));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(YuvRendering, Essl100ProgramMixesAPackedAndAYuvImage) {
    const int width = 34;
    const int height = 18;
    sp<GraphicBuffer> rgba = zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888);
    sp<GraphicBuffer> yv12 = zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_YV12);
    sp<GraphicBuffer> out = zel::test::makeTestBuffer(width, height, HAL_PIXEL_FORMAT_RGBA_8888);
    const RgbImage packed = zel::test::gradient(width, height);
    zel::test::writeRgba(*rgba, packed);
    zel::test::fillBuffer(*yv12, zel::test::noise(width, height, 41),
                          zel::test::dataspaceOf({YuvStandard::Bt2020, false}));
    const RgbImage decoded =
        zel::test::decode(zel::test::readPlanes(*yv12), {YuvStandard::Bt2020, false});
    zel::test::poisonBuffer(*out);
    const char* vertex =
        "attribute vec2 aPosition;\nvarying vec2 vTexCoord;\nvoid main() {\n"
        "    vTexCoord = (aPosition + 1.0) * 0.5;\n    gl_Position = vec4(aPosition, 0.0, "
        "1.0);\n}\n";
    const char* fragment =
        "#extension GL_OES_EGL_image_external : require\nprecision mediump float;\n"
        "uniform samplerExternalOES uPacked, uYuv;\nvarying vec2 vTexCoord;\nvoid main() {\n"
        "    gl_FragColor = 0.5 * texture2D(uPacked, vTexCoord) + 0.5 * texture2D(uYuv, "
        "vTexCoord);\n"
        "}\n";
    Program program(vertex, fragment);
    ASSERT_EQ(program.error(), "");
    glBindAttribLocation(program.name(), 0, "aPosition");
    glLinkProgram(program.name());
    program.use();
    glUniform1i(glGetUniformLocation(program.name(), "uPacked"), 2);
    glUniform1i(glGetUniformLocation(program.name(), "uYuv"), 5);
    ExternalImage packedImage(display(), *rgba);
    ExternalImage yuvImage(display(), *yv12);
    ExternalImage destination(display(), *out);
    packedImage.bind(GL_TEXTURE2);
    yuvImage.bind(GL_TEXTURE5);
    ImageFramebuffer framebuffer(destination, width, height);
    Quad().draw();
    glFinish();
    RgbImage expected(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto& a = packed.at(x, y);
            const auto& b = decoded.at(x, y);
            auto mean = [](int p, int q) {
                return static_cast<uint8_t>(std::lround((p + q) / 2.0));
            };
            expected.at(x, y) = {mean(a.r, b.r), mean(a.g, b.g), mean(a.b, b.b), 255};
        }
    }
    EXPECT_TRUE(zel::test::imagesMatch(zel::test::readRgba(*out), expected, 1));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

}  // namespace
