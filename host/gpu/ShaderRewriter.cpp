#include "ShaderRewriter.h"

#include <algorithm>
#include <cctype>

namespace zel {
namespace hostgpu {

namespace {

constexpr const char* kExternalSampler = "samplerExternalOES";
constexpr const char* kSampler2D = "sampler2D";

// Extensions the layer implements: the driver must not see them required.
constexpr const char* kLayerExtensions[] = {"GL_OES_EGL_image_external",
                                            "GL_OES_EGL_image_external_essl3"};

bool isIdentifierStart(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool isIdentifierChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// The extension named by an "#extension NAME : behaviour" line, or empty.
std::string extensionOfLine(const std::string& line) {
    size_t at = line.find_first_not_of(" \t");
    if (at == std::string::npos || line[at] != '#') {
        return "";
    }
    at = line.find_first_not_of(" \t", at + 1);
    if (at == std::string::npos || line.compare(at, 9, "extension") != 0) {
        return "";
    }
    at = line.find_first_not_of(" \t", at + 9);
    if (at == std::string::npos) {
        return "";
    }
    size_t end = at;
    while (end < line.size() && isIdentifierChar(line[end])) {
        ++end;
    }
    return line.substr(at, end - at);
}

// Blanks the #extension lines of the layer's extensions; true when one was found.
bool blankLayerExtensions(std::string* text) {
    bool blanked = false;
    size_t start = 0;
    while (start < text->size()) {
        size_t end = text->find('\n', start);
        if (end == std::string::npos) {
            end = text->size();
        }
        const std::string name = extensionOfLine(text->substr(start, end - start));
        if (!name.empty() && std::find_if(std::begin(kLayerExtensions), std::end(kLayerExtensions),
                                          [&name](const char* extension) {
                                              return name == extension;
                                          }) != std::end(kLayerExtensions)) {
            text->replace(start, end - start, "");
            end = start;
            blanked = true;
        }
        start = end + 1;
    }
    return blanked;
}

// Follows the tokens of declarations to find the names declared with the external sampler type
// in `uniform` declarations: "uniform [qualifiers] samplerExternalOES a, b[2];".
class DeclarationScanner {
public:
    void identifier(const std::string& word, std::vector<std::string>* names) {
        if (mState == State::ExpectName) {
            names->push_back(word);
            mState = State::AfterName;
            return;
        }
        if (mState == State::AfterName) {
            return;
        }
        if (word == "uniform") {
            mUniform = true;
        } else if (word == kExternalSampler && mUniform) {
            mState = State::ExpectName;
        }
    }

    void punctuation(char c) {
        if (c == ';' || c == '{' || c == '}') {
            mUniform = false;
            mState = State::Outside;
            mBrackets = 0;
        } else if (mState == State::AfterName) {
            if (c == '[') {
                ++mBrackets;
            } else if (c == ']') {
                --mBrackets;
            } else if (c == ',' && mBrackets == 0) {
                mState = State::ExpectName;
            }
        }
    }

private:
    enum class State { Outside, ExpectName, AfterName };
    State mState = State::Outside;
    bool mUniform = false;
    int mBrackets = 0;
};

}  // namespace

RewrittenShader ShaderRewriter::rewrite(const std::string& source) {
    RewrittenShader result;
    if (source.find(kExternalSampler) == std::string::npos &&
        source.find("GL_OES_EGL_image_external") == std::string::npos) {
        return result;
    }
    std::string text = source;
    result.changed = blankLayerExtensions(&text);

    // Copies the text, replacing the external sampler type outside comments and preprocessor
    // lines, and collects the uniforms declared with it.
    std::string out;
    out.reserve(text.size());
    DeclarationScanner scanner;
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
        } else if (c != ' ' && c != '\t' && c != '\r') {
            lineStart = false;
        }
        if (isIdentifierStart(c)) {
            size_t end = i;
            while (end < text.size() && isIdentifierChar(text[end])) {
                ++end;
            }
            const std::string word = text.substr(i, end - i);
            scanner.identifier(word, &result.externalSamplers);
            if (word == kExternalSampler) {
                out += kSampler2D;
                result.changed = true;
            } else {
                out += word;
            }
            i = end;
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
        scanner.punctuation(c);
        out += c;
        ++i;
    }
    if (result.changed) {
        result.source = std::move(out);
    }
    return result;
}

}  // namespace hostgpu
}  // namespace zel
