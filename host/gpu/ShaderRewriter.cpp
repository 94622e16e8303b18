#include "ShaderRewriter.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <regex>

namespace zel {
namespace hostgpu {

namespace {

constexpr const char* kExternalSampler = "samplerExternalOES";
constexpr const char* kY2ySampler = "__samplerExternal2DY2YEXT";
constexpr const char* kSampler2D = "sampler2D";
constexpr const char* kYuvTarget = "GL_EXT_YUV_target";

// Extensions the layer implements: the driver must not see them required.
constexpr const char* kLayerExtensions[] = {"GL_OES_EGL_image_external",
                                            "GL_OES_EGL_image_external_essl3", kYuvTarget};

bool isIdentifierStart(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool isIdentifierChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// A preprocessor directive: its name ("version", "extension" ...) and what follows it.
bool parseDirective(const std::string& line, std::string* name, std::string* rest) {
    size_t at = line.find_first_not_of(" \t");
    if (at == std::string::npos || line[at] != '#') {
        return false;
    }
    at = line.find_first_not_of(" \t", at + 1);
    if (at == std::string::npos) {
        return false;
    }
    size_t end = at;
    while (end < line.size() && isIdentifierChar(line[end])) {
        ++end;
    }
    *name = line.substr(at, end - at);
    *rest = line.substr(end);
    return true;
}

bool isLayerExtension(const std::string& name) {
    return std::find_if(std::begin(kLayerExtensions), std::end(kLayerExtensions),
                        [&name](const char* extension) { return name == extension; }) !=
           std::end(kLayerExtensions);
}

struct Directives {
    bool essl3 = false;
    bool yuvTarget = false;      // GL_EXT_YUV_target is enabled
    bool externalImage = false;  // GL_OES_EGL_image_external(_essl3) is enabled
    bool changed = false;
};

// Blanks the layer's #extension lines and injects the YUV_target built-ins after the last
// #extension line.
Directives rewriteDirectives(std::string* text, bool textsOnly) {
    Directives result;
    std::vector<std::string> lines;
    size_t start = 0;
    while (start <= text->size()) {
        size_t end = text->find('\n', start);
        if (end == std::string::npos) {
            end = text->size();
        }
        lines.push_back(text->substr(start, end - start));
        start = end + 1;
    }
    long lastExtension = -1;
    bool lastBlanked = false;
    for (size_t i = 0; i < lines.size(); ++i) {
        std::string name;
        std::string rest;
        if (!parseDirective(lines[i], &name, &rest)) {
            continue;
        }
        if (name == "version") {
            result.essl3 = std::atoi(rest.c_str()) >= 300;
        } else if (name == "extension") {
            const size_t colon = rest.find(':');
            const std::string extension = trimmed(rest.substr(0, colon));
            const std::string behaviour =
                colon == std::string::npos ? "" : trimmed(rest.substr(colon + 1));
            lastExtension = static_cast<long>(i);
            lastBlanked = isLayerExtension(extension);
            if (lastBlanked) {
                result.yuvTarget |= extension == kYuvTarget && behaviour != "disable";
                result.externalImage |= extension != kYuvTarget && behaviour != "disable";
                lines[i].clear();
                result.changed = true;
            }
        }
    }
    if (!result.changed) {
        return result;
    }
    if (result.yuvTarget) {
        const size_t at = static_cast<size_t>(lastExtension);
        if (lastBlanked) {
            lines[at] = YuvShaderCode::builtIns(textsOnly);
        } else {
            // After a line the driver keeps: the next line gets its own number back.
            lines.insert(lines.begin() + static_cast<long>(at) + 1,
                         {YuvShaderCode::builtIns(textsOnly), "#line " + std::to_string(at + 2)});
        }
    }
    std::string joined;
    for (size_t i = 0; i < lines.size(); ++i) {
        joined += lines[i];
        if (i + 1 < lines.size()) {
            joined += '\n';
        }
    }
    *text = std::move(joined);
    return result;
}

size_t skipBlanks(const std::string& text, size_t at) {
    while (at < text.size() && isBlank(text[at])) {
        ++at;
    }
    return at;
}

size_t identifierEnd(const std::string& text, size_t at) {
    while (at < text.size() && isIdentifierChar(text[at])) {
        ++at;
    }
    return at;
}

// Follows uniform declarations with an external sampler type: "uniform [qualifiers] TYPE a,
// b[2];", collecting the names.
class DeclarationScanner {
public:
    explicit DeclarationScanner(std::vector<ExternalSampler>* samplers) : mSamplers(samplers) {}

    // Returns true when `word` was taken as a declared name.
    bool identifier(const std::string& word) {
        if (mState == State::ExpectName) {
            mSamplers->push_back({word, mType, false});
            mPending.push_back(mSamplers->size() - 1);
            mState = State::AfterName;
            return true;
        }
        if (word == "uniform") {
            mUniform = true;
        }
        return false;
    }

    void externalType(ExternalSampler::Type type) {
        if (mUniform && mState == State::Outside) {
            mType = type;
            mState = State::ExpectName;
        }
    }

    // Returns the samplers whose declaration statement `c` ends.
    std::vector<size_t> punctuation(char c) {
        std::vector<size_t> ended;
        if (c == ';' || c == '{' || c == '}') {
            if (c == ';') {
                ended.swap(mPending);
            }
            mPending.clear();
            mUniform = false;
            mState = State::Outside;
            mBrackets = 0;
        } else if (mState == State::AfterName) {
            if (c == '[') {
                if (mBrackets++ == 0 && !mPending.empty()) {
                    (*mSamplers)[mPending.back()].array = true;
                }
            } else if (c == ']') {
                --mBrackets;
            } else if (c == ',' && mBrackets == 0) {
                mState = State::ExpectName;
            }
        }
        return ended;
    }

private:
    enum class State { Outside, ExpectName, AfterName };
    std::vector<ExternalSampler>* mSamplers;
    State mState = State::Outside;
    ExternalSampler::Type mType = ExternalSampler::Type::Oes;
    bool mUniform = false;
    int mBrackets = 0;
    std::vector<size_t> mPending;
};

// "layout(...)" at `at` without the yuv qualifier; false when it has none.
bool dropYuvQualifier(const std::string& text, size_t at, size_t* end, std::string* replacement) {
    size_t open = skipBlanks(text, at + 6);
    if (open >= text.size() || text[open] != '(') {
        return false;
    }
    const size_t close = text.find(')', open);
    if (close == std::string::npos) {
        return false;
    }
    std::vector<std::string> kept;
    bool found = false;
    size_t start = open + 1;
    while (start <= close) {
        size_t comma = text.find(',', start);
        if (comma == std::string::npos || comma > close) {
            comma = close;
        }
        const std::string qualifier = trimmed(text.substr(start, comma - start));
        if (qualifier == "yuv") {
            found = true;
        } else if (!qualifier.empty()) {
            kept.push_back(qualifier);
        }
        start = comma + 1;
    }
    if (!found) {
        return false;
    }
    replacement->clear();
    for (const std::string& qualifier : kept) {
        *replacement += (replacement->empty() ? "layout(" : ", ") + qualifier;
    }
    if (!replacement->empty()) {
        *replacement += ")";
    }
    *end = close + 1;
    return true;
}

// The text outside comments, with each comment replaced by a blank.
std::string withoutComments(const std::string& text) {
    std::string out;
    size_t i = 0;
    while (i < text.size()) {
        if (text[i] == '/' && i + 1 < text.size() && (text[i + 1] == '/' || text[i + 1] == '*')) {
            const bool line = text[i + 1] == '/';
            const size_t end = line ? text.find('\n', i) : text.find("*/", i + 2);
            i = end == std::string::npos ? text.size() : end + (line ? 0 : 2);
            out += ' ';
            continue;
        }
        out += text[i++];
    }
    return out;
}

// What the Khronos texts of OES_EGL_image_external_essl3 and EXT_YUV_target refuse in `source`
// and the phone drivers let pass; empty when nothing.
std::string conformanceViolation(const std::string& source, const Directives& directives,
                                 const std::vector<ExternalSampler>& samplers) {
    const std::string text = withoutComments(source);
    if (text.find(kExternalSampler) != std::string::npos && !directives.externalImage) {
        return "samplerExternalOES without its #extension";
    }
    for (const ExternalSampler& sampler : samplers) {
        const std::regex lod("\\btextureLod\\s*\\(\\s*" + sampler.name + "\\b");
        if (std::regex_search(text, lod)) {
            return "textureLod of the external sampler " + sampler.name;
        }
    }
    static const std::regex yuvWithOthers(
        "layout\\s*\\([^)]*(\\byuv\\b[^)]*,|,[^)]*\\byuv\\b)[^)]*\\)");
    if (std::regex_search(text, yuvWithOthers)) {
        return "the yuv layout qualifier with another one";
    }
    static const std::regex integerStandard(
        "\\b(rgb_2_yuv|yuv_2_rgb)\\s*\\([^;]*,\\s*[0-9]+[uU]?\\s*\\)");
    if (std::regex_search(text, integerStandard)) {
        return "an integer where a yuvCscStandardEXT is expected";
    }
    return "";
}

}  // namespace

RewrittenShader ShaderRewriter::rewrite(const std::string& source,
                                        const std::map<std::string, YuvSampling>& yuvSamplers,
                                        bool textsOnly) {
    RewrittenShader result;
    if (source.find("samplerExternal") == std::string::npos &&
        source.find("GL_OES_EGL_image_external") == std::string::npos &&
        source.find(kYuvTarget) == std::string::npos) {
        return result;
    }
    std::string text = source;
    const Directives directives = rewriteDirectives(&text, textsOnly);
    result.changed = directives.changed;

    // Copies the text outside comments and preprocessor lines token by token, rewriting types,
    // qualifiers and calls, and collecting the uniforms declared with an external sampler type.
    std::string out;
    out.reserve(text.size() + 1024);
    DeclarationScanner scanner(&result.externalSamplers);
    auto isYuvSampler = [&](const std::string& name) {
        if (yuvSamplers.count(name) == 0) {
            return false;
        }
        return std::any_of(result.externalSamplers.begin(), result.externalSamplers.end(),
                           [&name](const ExternalSampler& sampler) {
                               return sampler.name == name && !sampler.array;
                           });
    };
    bool lineStart = true;
    size_t i = 0;
    while (i < text.size()) {
        const char c = text[i];
        if (c == '/' && i + 1 < text.size() && (text[i + 1] == '/' || text[i + 1] == '*')) {
            const bool line = text[i + 1] == '/';
            size_t end = line ? text.find('\n', i) : text.find("*/", i + 2);
            end = end == std::string::npos ? text.size() : end + (line ? 0 : 2);
            out.append(text, i, end - i);
            i = end;
            continue;
        }
        if (c == '#' && lineStart) {
            size_t end = text.find('\n', i);
            end = end == std::string::npos ? text.size() : end;
            out.append(text, i, end - i);
            i = end;
            continue;
        }
        if (c == '\n') {
            lineStart = true;
        } else if (!isBlank(c)) {
            lineStart = false;
        }
        if (isIdentifierStart(c)) {
            const size_t end = identifierEnd(text, i);
            const std::string word = text.substr(i, end - i);
            i = end;
            if (scanner.identifier(word)) {
                out += word;
            } else if (word == kExternalSampler || word == kY2ySampler) {
                scanner.externalType(word == kExternalSampler ? ExternalSampler::Type::Oes
                                                              : ExternalSampler::Type::Y2y);
                out += kSampler2D;
                result.changed = true;
            } else if (word == "yuvCscStandardEXT" && directives.yuvTarget) {
                out += "int";
                result.changed = true;
            } else if (word == "layout") {
                size_t after = 0;
                std::string replacement;
                if (dropYuvQualifier(text, i - word.size(), &after, &replacement)) {
                    out += replacement;
                    i = after;
                    result.yuvOutput = true;
                    result.changed = true;
                } else {
                    out += word;
                }
            } else if ((word == "texture" || word == "texture2D") && !yuvSamplers.empty()) {
                // texture(NAME, ...) of a YUV sampler: its sampling function(...).
                size_t at = skipBlanks(text, i);
                if (at < text.size() && text[at] == '(') {
                    at = skipBlanks(text, at + 1);
                    const size_t nameEnd = identifierEnd(text, at);
                    const std::string name = text.substr(at, nameEnd - at);
                    const size_t comma = skipBlanks(text, nameEnd);
                    if (!name.empty() && comma < text.size() && text[comma] == ',' &&
                        isYuvSampler(name)) {
                        out += YuvShaderCode::samplingFunction(name) + "(";
                        i = comma + 1;
                        result.changed = true;
                        continue;
                    }
                }
                out += word;
            } else {
                out += word;
            }
            continue;
        }
        if (std::isdigit(static_cast<unsigned char>(c)) != 0) {
            // Numbers (with suffixes such as 1.0e5f) are not identifiers.
            size_t end = i;
            while (end < text.size() && (isIdentifierChar(text[end]) || text[end] == '.')) {
                ++end;
            }
            out.append(text, i, end - i);
            i = end;
            continue;
        }
        out += c;
        ++i;
        for (size_t index : scanner.punctuation(c)) {
            const ExternalSampler& sampler = result.externalSamplers[index];
            auto it = yuvSamplers.find(sampler.name);
            if (it == yuvSamplers.end() || sampler.array) {
                continue;
            }
            const YuvSampling& sampling = it->second;
            out += YuvShaderCode::samplingCode(sampler.name, sampling.layout, sampling.output,
                                               sampling.conversion, directives.essl3);
            result.changed = true;
        }
    }
    if (textsOnly) {
        const std::string violation =
            conformanceViolation(source, directives, result.externalSamplers);
        if (!violation.empty()) {
            // The driver reports it as a compile error on the last line.
            out += "\n#error " + violation + "\n";
            result.changed = true;
        }
    }
    if (result.changed) {
        result.source = std::move(out);
    }
    return result;
}

}  // namespace hostgpu
}  // namespace zel
