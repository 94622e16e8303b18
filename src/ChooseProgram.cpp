#include "ChooseProgram.h"

#include <cstdio>
#include <string>

#include "Log.h"
#include "ScopedTrace.h"

namespace kav {
namespace zel {

namespace {

constexpr const char kLogFile[] = "src/ChooseProgram";
constexpr const char kIndentation[] = "    ";

// The GL_EXT_YUV_target conversion constants, by colour matrix index.
constexpr const char* kColorMatrixNames[] = {
    "itu_601",  "itu_601_full_range",  "itu_709", "itu_709_full_range",
    "itu_2020", "itu_2020_full_range",
};
constexpr uint32_t kColorMatrixCount = sizeof(kColorMatrixNames) / sizeof(kColorMatrixNames[0]);

// Source sampling of an RGBA source into a YUV destination, converted with one colour matrix.
std::string rgbToYuvLine(const char* texCoords, uint32_t colorMatrix) {
    return std::string("vec4 src0 = vec4(rgb_2_yuv(texture(uTexture0, ") + texCoords + ").rgb, " +
           kColorMatrixNames[colorMatrix] + "), 1.0);";
}

// The source line of an RGBA-to-YUV conversion without the built-ins: explicit BT.709 or BT.2020
// matrices, by colour matrix index (3 to 5); the digital ITU formulas, as rgb_2_yuv computes them.
std::string explicitRgbToYuvLine(const char* texCoords, uint32_t index) {
    const double kr = index == 3 ? 0.2126 : 0.2627;
    const double kb = index == 3 ? 0.0722 : 0.0593;
    const double kg = 1.0 - kr - kb;
    const bool full = index % 2 == 1;
    const double yScale = full ? 1.0 : 219.0 / 255.0;
    const double cScale = full ? 1.0 : 224.0 / 255.0;
    const double cb = cScale / (2.0 - 2.0 * kb);
    const double cr = cScale / (2.0 - 2.0 * kr);
    // mat3 takes columns: the weights of R, then G, then B in (Y, Cb, Cr).
    char line[512];
    snprintf(line, sizeof(line),
             "vec4 src0 = vec4(mat3(%.9f, %.9f, %.9f, %.9f, %.9f, %.9f, %.9f, %.9f, %.9f) * "
             "texture(uTexture0, %s).rgb + vec3(%.9f, %.9f, %.9f), 1.0);",
             yScale * kr, -cb * kr, cr * (1.0 - kr), yScale * kg, -cb * kg, -cr * kg, yScale * kb,
             cb * (1.0 - kb), -cr * kb, texCoords, full ? 0.0 : 16.0 / 255.0, 128.0 / 255.0,
             128.0 / 255.0);
    return line;
}

uint32_t colorMatrixIndex(const Description& desc) {
    const uint32_t full = desc.mFullRange ? 1 : 0;
    switch (desc.mStandard) {
        case Description::kStandardBt601:
            return 0 + full;
        case Description::kStandardBt709:
            return 2 + full;
        case Description::kStandardBt2020:
            return 4 + full;
        default:
            return 0;
    }
}

void writeAlphaLines(Formatter& out) {
    out << "vec4 alpha = texture(uAlphaTexture, vTexCoords);";
    out << "vec4 negalpha = alpha*vec4(-1,-1,-1,1)+vec4(1,1,1,0);";
}

}  // namespace

Formatter& operator<<(Formatter& out, const char* line) {
    for (int32_t i = 0; i < out.mIndent; ++i) {
        out.mText.append(kIndentation);
    }
    out.mText.append(line);
    out.mText.append("\n");
    return out;
}

ChooseProgram::Key ChooseProgram::computeKey(const Description& desc) {
    using K = Key;
    Key key;
    key.mKey |= desc.mDualSource ? 1u : 0u;
    switch (desc.mFmtType) {
        case Description::kFmtRgbaDst:
            break;
        case Description::kFmtYuvToYuv:
            key.mKey |= K::kYuvTarget;
            break;
        default:
            key.mKey |= K::kRgbToYuv;
            break;
    }
    if (desc.mHasProjection) {
        key.mKey |= K::kProjection;
    }
    if (desc.mHasTexCoords) {
        key.mKey |= K::kTexCoords;
    }
    if (desc.mHasWarp) {
        key.mKey |= desc.mWarpIs2D ? K::kWarp2D : K::kWarpExternal;
    }
    if (desc.mHasAlpha) {
        key.mKey |= desc.mAlphaIs2D ? K::kAlpha2D : K::kAlphaExternal;
    }
    if (desc.mFmtType == Description::kFmtRgbaToYuv) {
        key.mKey |= colorMatrixIndex(desc) << K::kColorMatrixShift;
    }
    ZEL_LOGD("mKey = %x", key.mKey);
    return key;
}

void ChooseProgram::generateVertexShader(Formatter& out, const Key& key) {
    out << "#version 310 es";
    out << "precision highp float;";
    out << "layout (location = 0) in vec2 aPosition;";
    if (key.hasTexCoords()) {
        out << "layout (location = 1) in vec2 aTex0Coords;";
        out << "out vec2 vTex0Coords;";
        if (key.hasDualSource()) {
            out << "layout (location = 2) in vec2 aTex1Coords;";
            out << "out vec2 vTex1Coords;";
        }
        if (key.hasAlpha()) {
            out << "layout (location = 3) in vec2 aTexCoords;";
            out << "out vec2 vTexCoords;";
        }
    } else {
        out << "out vec2 vTexCoords;";
    }
    if (key.hasProjection()) {
        out << "uniform mat4 uProjection;";
    }

    out << "void main(void) {";
    out.indent();
    if (key.hasProjection()) {
        out << "gl_Position = uProjection * vec4(aPosition, 0.0, 1.0);";
    } else {
        out << "gl_Position = vec4(aPosition, 0.0, 1.0);";
    }
    if (key.hasTexCoords()) {
        out << "vTex0Coords = aTex0Coords;";
        if (key.hasDualSource()) {
            out << "vTex1Coords = aTex1Coords;";
        }
        if (key.hasAlpha()) {
            out << "vTexCoords = aTexCoords;";
        }
    } else {
        // Texture coordinates follow from the clip-space position.
        out << "vTexCoords = vec2((aPosition.x+1.0)*0.5, (aPosition.y+1.0)*0.5);";
    }
    out.dedent();
    out << "}";
}

void ChooseProgram::generateFragmentShader(Formatter& out, const Key& key) {
    generateFragmentShader(out, key, false);
}

void ChooseProgram::generateFragmentShader(Formatter& out, const Key& key, bool portable) {
    portable = portable && key.isRgbToYuv();
    out << "#version 310 es";
    out << "#extension GL_OES_EGL_image_external_essl3 : require";
    if (key.isYuvTarget()) {
        out << "#extension GL_EXT_YUV_target : require";
        out << "precision highp float;";
        if (portable) {
            out << "layout(binding = 0) uniform samplerExternalOES uTexture0;";
        } else {
            out << "layout(binding = 0) uniform __samplerExternal2DY2YEXT uTexture0;";
        }
    } else {
        out << "precision highp float;";
        out << "layout(binding = 0) uniform samplerExternalOES uTexture0;";
    }
    if (key.hasDualSource()) {
        out << "layout (binding = 1) uniform samplerExternalOES uTexture1;";
    }
    // Binding 2 stays free. The warp texture is declared to hold binding 3 and never sampled.
    if (key.hasWarp()) {
        if ((key.mKey & Key::kWarpMask) == Key::kWarp2D) {
            out << "layout (binding = 3) uniform sampler2D uWarpTexture;";
        } else {
            out << "layout (binding = 3) uniform samplerExternalOES uWarpTexture;";
        }
    }
    if (key.hasAlpha()) {
        if ((key.mKey & Key::kAlphaMask) == Key::kAlpha2D) {
            out << "layout (binding = 4) uniform sampler2D uAlphaTexture;";
        } else {
            out << "layout (binding = 4) uniform samplerExternalOES uAlphaTexture;";
        }
    }
    if (key.hasTexCoords()) {
        out << "in vec2 vTex0Coords;";
        if (key.hasDualSource()) {
            out << "in vec2 vTex1Coords;";
        }
        if (key.hasAlpha()) {
            out << "in vec2 vTexCoords;";
        }
    } else {
        out << "in vec2 vTexCoords;";
    }
    if (key.isYuvTarget()) {
        out << "layout(yuv) out vec4 fragColor;";
    } else {
        out << "out vec4 fragColor;";
    }

    out << "void main(void) {";
    out.indent();
    if (key.isRgbToYuv()) {
        // An index past the table writes no src0 line, and the shader does not compile.
        const uint32_t index = key.colorMatrix();
        // With client texture coordinates (and no alpha texture) the only coordinates the shader
        // declares are vTex0Coords. Sampling vTexCoords there, as the generator was first written
        // to do, names an undeclared input and the program never links; this shape departs from
        // that text on purpose and samples the source at vTex0Coords, like every other shape with
        // client texture coordinates. All other texts stay as they were.
        const char* texCoords =
            key.hasTexCoords() && !key.hasAlpha() ? "vTex0Coords" : "vTexCoords";
        if (portable && index >= 3 && index < kColorMatrixCount) {
            out << explicitRgbToYuvLine(texCoords, index).c_str();
        } else if (index < kColorMatrixCount) {
            out << rgbToYuvLine(texCoords, index).c_str();
        }
    } else if (key.hasTexCoords()) {
        out << "vec4 src0 = texture(uTexture0, vTex0Coords);";
        if (key.hasDualSource()) {
            out << "vec4 src1 = texture(uTexture1, vTex1Coords);";
        }
        if (key.hasAlpha()) {
            writeAlphaLines(out);
        }
    } else {
        out << "vec4 src0 = texture(uTexture0, vTexCoords);";
        if (key.hasDualSource()) {
            out << "vec4 src1 = texture(uTexture1, vTexCoords);";
        }
        if (key.hasAlpha()) {
            writeAlphaLines(out);
        }
    }
    // RGBA into YUV writes no src1, alpha or negalpha, so with dual source and alpha this blend
    // names undeclared values and the program does not link: the draw refuses it. No pass the
    // renderer runs sets both, and a blend of a converted and an unconverted source would be
    // wrong anyway, so the text is left as it is.
    if (key.hasDualSource() && key.hasAlpha()) {
        out << "fragColor = alpha*src0+negalpha*src1;";
    } else {
        out << "fragColor = src0;";
    }
    out.dedent();
    out << "}";
}

bool ChooseProgram::driverTakesPhoneSuperset() {
    if (mExtraStandards < 0) {
        static const char* const kProbe =
            "#version 310 es\n"
            "#extension GL_EXT_YUV_target : require\n"
            "precision highp float;\n"
            "out vec4 color;\n"
            "void main(void) { color = vec4(rgb_2_yuv(vec3(0.5), itu_2020), 1.0); }\n";
        const GLuint shader = glCreateShader(GL_FRAGMENT_SHADER);
        glShaderSource(shader, 1, &kProbe, nullptr);
        glCompileShader(shader);
        GLint status = GL_FALSE;
        glGetShaderiv(shader, GL_COMPILE_STATUS, &status);
        glDeleteShader(shader);
        ZEL_CHECK_GL();
        mExtraStandards = status == GL_TRUE ? 1 : 0;
        if (mExtraStandards == 0) {
            ZEL_LOGI(
                "the driver keeps to the text of GL_EXT_YUV_target: portable RGBA sources "
                "and RGBA render targets");
        }
    }
    return mExtraStandards == 1;
}

std::shared_ptr<gl::Program> ChooseProgram::getProgram(Description& desc) {
    ZEL_TRACE_NAME("getProgram");
    ZEL_LOGD("desc.fmtType = %d, appId = %d", desc.mFmtType, desc.mAppId);

    const Key key = computeKey(desc);
    const bool portable = key.isRgbToYuv() && !driverTakesPhoneSuperset();
    Formatter vsFormatter;
    Formatter fsFormatter;
    generateVertexShader(vsFormatter, key);
    generateFragmentShader(fsFormatter, key, portable);
    const std::string vs(vsFormatter.getText().c_str(), vsFormatter.getText().length());
    const std::string fs(fsFormatter.getText().c_str(), fsFormatter.getText().length());

    std::lock_guard<std::mutex> lock(mCacheMutex);
    if (desc.mCacheProgram) {
        // The text, not the key, identifies a program: keys with the same text share one.
        const std::string hashString = vs + fs;
        const size_t hashValue = std::hash<std::string>{}(hashString);
        ZEL_LOGD("hashValue: %zu, hashString: %s", hashValue, hashString.c_str());
        std::shared_ptr<gl::Program>& entry = mCache[hashValue];
        if (entry == nullptr) {
            ZEL_LOGI("create program");
            entry = std::make_shared<gl::Program>(vs, fs, desc);
        } else {
            ZEL_LOGD("cache program");
        }
        return entry;
    }

    auto program = std::make_shared<gl::Program>(vs, fs, desc);
    ZEL_LOGD("vsString: %s,\nfsString: %s", vs.c_str(), fs.c_str());
    ZEL_LOGD("no cache program");
    if (!mCache.empty()) {
        mCache.clear();
    }
    return program;
}

}  // namespace zel
}  // namespace kav
