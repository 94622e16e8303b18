#include "YuvShaderCode.h"

#include <cstdio>

namespace zel {
namespace hostgpu {

namespace {

std::string number(double value) {
    char text[32];
    snprintf(text, sizeof(text), "%.9g", value);
    std::string result = text;
    if (result.find_first_of(".e") == std::string::npos) {
        result += ".0";
    }
    return result;
}

std::string vec3Of(const double values[3]) {
    return "vec3(" + number(values[0]) + ", " + number(values[1]) + ", " + number(values[2]) + ")";
}

// P010 samples hold code << 6 in 16 bits: sampled (filtered) as code * 64 / 65535, which this
// scales to code / 1023.
constexpr const char* kP010Scale = "(65535.0 / 65472.0)";

}  // namespace

std::string YuvShaderCode::prefixed(const char* prefix, const std::string& name) {
    // "zelYuvX_" + name, without a doubled underscore for names that start with one.
    return std::string(prefix) + (name.empty() || name[0] != '_' ? "_" : "") + name;
}

std::string YuvShaderCode::samplingFunction(const std::string& name) {
    return prefixed("zelYuvSample", name);
}

std::string YuvShaderCode::planeSampler(const std::string& name, uint32_t plane) {
    return prefixed(plane == 1 ? "zelYuvPlane1" : "zelYuvPlane2", name);
}

std::string YuvShaderCode::chromaTransform(const std::string& name) {
    return prefixed("zelYuvChroma", name);
}

std::string YuvShaderCode::builtIns(bool textsOnly) {
    const std::string standards =
        textsOnly
            ? "const int itu_601 = 0; const int itu_601_full_range = 1; const int itu_709 = 2; "
            : "const int itu_601 = 0; const int itu_601_full_range = 1; const int itu_709 = 2; "
              "const int itu_709_full_range = 3; const int itu_2020 = 4; "
              "const int itu_2020_full_range = 5; ";
    return standards +
           "highp vec2 zelYuvKrKb(int s) { return s < 2 ? vec2(0.299, 0.114) : (s < 4 ? "
           "vec2(0.2126, 0.0722) : vec2(0.2627, 0.0593)); } "
           "highp vec3 rgb_2_yuv(highp vec3 color, int s) { highp vec2 k = zelYuvKrKb(s); "
           "highp float y = dot(color, vec3(k.x, 1.0 - k.x - k.y, k.y)); "
           "highp vec3 e = vec3(y, (color.b - y) / (2.0 - 2.0 * k.y), (color.r - y) / (2.0 - 2.0 "
           "* k.x)); "
           "return (s % 2) == 1 ? e + vec3(0.0, 128.0 / 255.0, 128.0 / 255.0) : (e * vec3(219.0, "
           "224.0, 224.0) + vec3(16.0, 128.0, 128.0)) / 255.0; } "
           "highp vec3 yuv_2_rgb(highp vec3 color, int s) { highp vec2 k = zelYuvKrKb(s); "
           "highp vec3 e = (s % 2) == 1 ? color - vec3(0.0, 128.0 / 255.0, 128.0 / 255.0) : "
           "(color * 255.0 - vec3(16.0, 128.0, 128.0)) / vec3(219.0, 224.0, 224.0); "
           "highp float r = e.x + (2.0 - 2.0 * k.x) * e.z; "
           "highp float b = e.x + (2.0 - 2.0 * k.y) * e.y; "
           "return vec3(r, (e.x - k.x * r - k.y * b) / (1.0 - k.x - k.y), b); }";
}

std::string YuvShaderCode::samplingCode(const std::string& name, ImageLayout layout, Output output,
                                        YuvConversion conversion, bool essl3) {
    const std::string sample = essl3 ? "texture(" : "texture2D(";
    const std::string plane1 = planeSampler(name, 1);
    const std::string plane2 = planeSampler(name, 2);
    const std::string transform = chromaTransform(name);
    std::string code = " uniform highp sampler2D " + plane1 + ";";
    if (layout == ImageLayout::Yv12) {
        code += " uniform highp sampler2D " + plane2 + ";";
    }
    code += " uniform highp vec4 " + transform + ";";
    code += " highp vec4 " + samplingFunction(name) + "(highp vec2 tc) { highp vec2 ct = tc * " +
            transform + ".xy + " + transform + ".zw; highp vec3 yuv = vec3(" + sample + name +
            ", tc).r, ";
    switch (layout) {
        case ImageLayout::Nv21:
            code += sample + plane1 + ", ct).gr);";
            break;
        case ImageLayout::Yv12:
            // Plane 1 is Cr, plane 2 Cb.
            code += sample + plane2 + ", ct).r, " + sample + plane1 + ", ct).r);";
            break;
        default:
            code += sample + plane1 + ", ct).rg);";
            break;
    }
    if (layout == ImageLayout::P010) {
        code += std::string(" yuv *= ") + kP010Scale + ";";
    }
    if (output == Output::Raw) {
        code += " return vec4(yuv, 1.0); }";
        return code;
    }
    const YuvToRgbCoefficients c =
        yuvToRgbCoefficients(conversion, layout == ImageLayout::P010 ? 10 : 8);
    code += " highp vec3 e = (yuv - " + vec3Of(c.offset) + ") * " + vec3Of(c.scale) + ";";
    code += " return vec4(clamp(vec3(e.x + " + number(c.crToR) + " * e.z, e.x - " +
            number(c.cbToG) + " * e.y - " + number(c.crToG) + " * e.z, e.x + " + number(c.cbToB) +
            " * e.y), 0.0, 1.0), 1.0); }";
    return code;
}

const char* YuvShaderCode::passVertexShader() {
    return "#version 300 es\n"
           "void main() {\n"
           "    gl_Position = vec4(float((gl_VertexID & 1) * 4 - 1),\n"
           "                       float((gl_VertexID & 2) * 2 - 1), 0.0, 1.0);\n"
           "}\n";
}

namespace {

constexpr const char* kPassHeader =
    "#version 300 es\n"
    "precision highp float;\n"
    "precision highp int;\n";

}  // namespace

std::string YuvShaderCode::unpackShader(ImageLayout layout) {
    std::string code = kPassHeader;
    code +=
        "uniform highp sampler2D uPlane0;\n"
        "uniform highp sampler2D uPlane1;\n"
        "uniform highp sampler2D uPlane2;\n"
        "uniform ivec2 uParity;\n"
        "layout(location = 0) out vec4 oColor;\n"
        "void main() {\n"
        "    ivec2 p = ivec2(gl_FragCoord.xy);\n"
        "    ivec2 c = min((p + uParity) / 2, textureSize(uPlane1, 0) - 1);\n"
        "    float y = texelFetch(uPlane0, p, 0).r;\n";
    switch (layout) {
        case ImageLayout::Nv21:
            code += "    vec2 cbcr = texelFetch(uPlane1, c, 0).gr;\n";
            break;
        case ImageLayout::Yv12:
            code +=
                "    vec2 cbcr = vec2(texelFetch(uPlane2, c, 0).r, texelFetch(uPlane1, c, 0).r);\n";
            break;
        default:
            code += "    vec2 cbcr = texelFetch(uPlane1, c, 0).rg;\n";
            break;
    }
    if (layout == ImageLayout::P010) {
        // The code is in the top 10 bits; whatever the low 6 hold is dropped.
        code +=
            "    y = floor((y * 65535.0 + 0.5) / 64.0) / 1023.0;\n"
            "    cbcr = floor((cbcr * 65535.0 + 0.5) / 64.0) / 1023.0;\n";
    }
    code +=
        "    oColor = vec4(y, cbcr, 1.0);\n"
        "}\n";
    return code;
}

std::string YuvShaderCode::packLumaShader(ImageLayout layout) {
    std::string code = kPassHeader;
    code +=
        "uniform highp sampler2D uSource;\n"
        "layout(location = 0) out vec4 oLuma;\n"
        "void main() {\n"
        "    float y = texelFetch(uSource, ivec2(gl_FragCoord.xy), 0).r;\n";
    if (layout == ImageLayout::P010) {
        code += "    y = round(y * 1023.0) * 64.0 / 65535.0;\n";
    }
    code +=
        "    oLuma = vec4(y, 0.0, 0.0, 1.0);\n"
        "}\n";
    return code;
}

std::string YuvShaderCode::packLumaBytesShader(ImageLayout layout) {
    std::string code = kPassHeader;
    code +=
        "uniform highp sampler2D uSource;\n"
        "layout(location = 0) out vec4 oBytes;\n"
        "float lumaAt(ivec2 p) {\n"
        "    return texelFetch(uSource, p, 0).r;\n"
        "}\n"
        "void main() {\n";
    if (layout == ImageLayout::P010) {
        // Two little-endian 16-bit samples holding code << 6.
        code +=
            "    ivec2 p = ivec2(gl_FragCoord.xy) * ivec2(2, 1);\n"
            "    vec2 code = round(vec2(lumaAt(p), lumaAt(p + ivec2(1, 0))) * 1023.0);\n"
            "    oBytes = vec4(mod(code.x, 4.0) * 64.0, floor(code.x / 4.0),\n"
            "                  mod(code.y, 4.0) * 64.0, floor(code.y / 4.0)) / 255.0;\n";
    } else {
        code +=
            "    ivec2 p = ivec2(gl_FragCoord.xy) * ivec2(4, 1);\n"
            "    oBytes = vec4(lumaAt(p), lumaAt(p + ivec2(1, 0)), lumaAt(p + ivec2(2, 0)),\n"
            "                  lumaAt(p + ivec2(3, 0)));\n";
    }
    code += "}\n";
    return code;
}

std::string YuvShaderCode::packChromaShader(ImageLayout layout, bool topLeftSample) {
    std::string code = kPassHeader;
    code +=
        "uniform highp sampler2D uSource;\n"
        "uniform ivec2 uParity;\n"
        "layout(location = 0) out vec4 oPlane0;\n";
    if (layout == ImageLayout::Yv12 || layout == ImageLayout::P010) {
        code += "layout(location = 1) out vec4 oPlane1;\n";
    }
    code +=
        "vec2 chromaAt(ivec2 p, ivec2 last) {\n"
        "    return texelFetch(uSource, clamp(p, ivec2(0), last), 0).gb;\n"
        "}\n"
        "void main() {\n"
        "    ivec2 last = textureSize(uSource, 0) - 1;\n"
        "    ivec2 p = ivec2(gl_FragCoord.xy) * 2 - uParity;\n";
    if (topLeftSample) {
        code += "    vec2 c = chromaAt(p, last);\n";
    } else {
        code +=
            "    vec2 c = (chromaAt(p, last) + chromaAt(p + ivec2(1, 0), last) +\n"
            "              chromaAt(p + ivec2(0, 1), last) + chromaAt(p + ivec2(1, 1), last)) * "
            "0.25;\n";
    }
    switch (layout) {
        case ImageLayout::Nv21:
            code += "    oPlane0 = vec4(c.y, c.x, 0.0, 1.0);\n";
            break;
        case ImageLayout::Yv12:
            code +=
                "    oPlane0 = vec4(c.y, 0.0, 0.0, 1.0);\n"
                "    oPlane1 = vec4(c.x, 0.0, 0.0, 1.0);\n";
            break;
        case ImageLayout::P010:
            // The RG16 plane, and its memory bytes (little-endian code << 6) for the read-back.
            code +=
                "    vec2 code = round(c * 1023.0);\n"
                "    oPlane0 = vec4(code * 64.0 / 65535.0, 0.0, 1.0);\n"
                "    oPlane1 = vec4(mod(code.x, 4.0) * 64.0, floor(code.x / 4.0),\n"
                "                   mod(code.y, 4.0) * 64.0, floor(code.y / 4.0)) / 255.0;\n";
            break;
        default:
            code += "    oPlane0 = vec4(c, 0.0, 1.0);\n";
            break;
    }
    code += "}\n";
    return code;
}

}  // namespace hostgpu
}  // namespace zel
