/*
 * Turns a Description into a program key, writes the GLSL ES 3.10 shaders for that key and hands
 * back a shared gl::Program, taken from a cache keyed by the hash of the shader text when the
 * description allows caching. Colour conversion into YUV destinations is left to the
 * GL_EXT_YUV_target built-ins (rgb_2_yuv and the itu_* constants).
 *
 * The phone drivers this library is written for accept more than the extension's text: the
 * standards itu_709_full_range, itu_2020 and itu_2020_full_range, and an RGBA source declared as
 * __samplerExternal2DY2YEXT. On a driver that keeps to the text (found out once, by compiling a
 * shader that names itu_2020), RGBA-to-YUV programs take a portable form instead: the source is a
 * plain samplerExternalOES, and the standards the text lacks are written as explicit matrices.
 * (The renderer asks the same question before it attaches an RGBA destination.)
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <mutex>
#include <unordered_map>

#include <utils/String8.h>

#include "Description.h"
#include "Program.h"

namespace kav {
namespace zel {

// Shader text under construction: every line written through operator<< carries four blanks per
// indentation level and ends with a newline.
class Formatter {
public:
    void indent() { ++mIndent; }
    void dedent() { --mIndent; }
    int32_t getIndent() const { return mIndent; }
    const android::String8& getText() const { return mText; }

    friend Formatter& operator<<(Formatter& out, const char* line);

private:
    android::String8 mText;
    int32_t mIndent = 0;
};

Formatter& operator<<(Formatter& out, const char* line);

class ChooseProgram {
public:
    struct Key {
        static constexpr uint32_t kDualSourceMask = 0x3;
        static constexpr uint32_t kYuvTarget = 0x4;  // neither side RGBA
        static constexpr uint32_t kRgbToYuv = 0x8;   // RGBA source into a YUV destination
        static constexpr uint32_t kFmtTypeMask = 0xc;
        static constexpr uint32_t kProjection = 0x10;
        static constexpr uint32_t kTexCoords = 0x20;
        static constexpr uint32_t kWarp2D = 0x40;
        static constexpr uint32_t kWarpExternal = 0x80;
        static constexpr uint32_t kWarpMask = 0xc0;
        static constexpr uint32_t kAlpha2D = 0x100;
        static constexpr uint32_t kAlphaExternal = 0x200;
        static constexpr uint32_t kAlphaMask = 0x300;
        static constexpr uint32_t kColorMatrixShift = 10;
        static constexpr uint32_t kColorMatrixMask = 0x7c00;

        bool hasDualSource() const { return (mKey & kDualSourceMask) != 0; }
        bool isYuvTarget() const { return (mKey & kFmtTypeMask) != 0; }
        bool isRgbToYuv() const { return (mKey & kRgbToYuv) != 0; }
        bool hasProjection() const { return (mKey & kProjection) != 0; }
        bool hasTexCoords() const { return (mKey & kTexCoords) != 0; }
        bool hasWarp() const { return (mKey & kWarpMask) != 0; }
        bool hasAlpha() const { return (mKey & kAlphaMask) != 0; }
        uint32_t colorMatrix() const { return (mKey & kColorMatrixMask) >> kColorMatrixShift; }

        uint32_t mKey = 0;
    };

    ChooseProgram() = default;
    ChooseProgram(const ChooseProgram&) = delete;
    ChooseProgram& operator=(const ChooseProgram&) = delete;

    static Key computeKey(const Description& desc);
    static void generateVertexShader(Formatter& out, const Key& key);
    static void generateFragmentShader(Formatter& out, const Key& key);
    // `portable`: the form for drivers that keep to the text of GL_EXT_YUV_target (RGBA-to-YUV
    // keys only differ).
    static void generateFragmentShader(Formatter& out, const Key& key, bool portable);

    // Never null: a program that failed to compile or link is returned (and cached) as well.
    // Runs on the renderer's GL thread with its context current.
    std::shared_ptr<gl::Program> getProgram(Description& desc);

    // Whether the driver accepts the phone-driver superset of GL_EXT_YUV_target (told by the
    // colour standards beyond the text); asked once, on the GL thread with the context current.
    bool driverTakesPhoneSuperset();

private:
    // -1 until asked, then 0 or 1.
    int mExtraStandards = -1;
    std::mutex mCacheMutex;
    std::unordered_map<size_t, std::shared_ptr<gl::Program>> mCache;
};

}  // namespace zel
}  // namespace kav
