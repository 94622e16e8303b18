#include "PositionForm.h"

#include <cctype>
#include <cstdlib>
#include <vector>

namespace zel {
namespace hostgpu {

namespace {

bool isIdentifierStart(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool isWordChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '.';
}

// The tokens of `source` without comments; false when the text holds anything that could change
// what the tokens mean (a directive other than #version and #extension, a line continuation).
bool tokenize(const std::string& source, std::vector<std::string>* tokens) {
    bool lineStart = true;
    for (size_t at = 0; at < source.size();) {
        const char c = source[at];
        if (c == '\n') {
            lineStart = true;
            ++at;
            continue;
        }
        if (c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v') {
            ++at;
            continue;
        }
        if (c == '/' && at + 1 < source.size() && source[at + 1] == '/') {
            at = source.find('\n', at);
            at = at == std::string::npos ? source.size() : at;
            continue;
        }
        if (c == '/' && at + 1 < source.size() && source[at + 1] == '*') {
            const size_t end = source.find("*/", at + 2);
            if (end == std::string::npos) {
                return false;
            }
            for (size_t i = at; i < end; ++i) {
                lineStart = lineStart || source[i] == '\n';
            }
            at = end + 2;
            continue;
        }
        if (c == '\\') {
            return false;
        }
        if (c == '#') {
            if (!lineStart) {
                return false;
            }
            size_t name = at + 1;
            while (name < source.size() && (source[name] == ' ' || source[name] == '\t')) {
                ++name;
            }
            if (source.compare(name, 7, "version") != 0 &&
                source.compare(name, 9, "extension") != 0) {
                return false;
            }
            at = source.find('\n', at);
            at = at == std::string::npos ? source.size() : at;
            continue;
        }
        lineStart = false;
        if (isWordChar(c)) {
            size_t end = at;
            while (end < source.size() && isWordChar(source[end])) {
                ++end;
            }
            tokens->push_back(source.substr(at, end - at));
            at = end;
            continue;
        }
        tokens->push_back(std::string(1, c));
        ++at;
    }
    return true;
}

bool isIdentifier(const std::string& token) {
    return !token.empty() && isIdentifierStart(token[0]);
}

bool isPrecision(const std::string& token) {
    return token == "highp" || token == "mediump" || token == "lowp";
}

// A numeric literal equal to `value`.
bool isNumber(const std::string& token, double value) {
    if (token.empty() || isIdentifierStart(token[0])) {
        return false;
    }
    std::string digits = token;
    if (digits.back() == 'f' || digits.back() == 'F') {
        digits.pop_back();
    }
    char* end = nullptr;
    const double parsed = std::strtod(digits.c_str(), &end);
    return end != nullptr && *end == '\0' && parsed == value;
}

// Whether `name` is declared once at file scope as `<qualifier> [precision] <type> name;`.
bool declaredOnce(const std::vector<std::string>& tokens, const std::string& name,
                  const char* const qualifiers[2], const char* type) {
    int found = 0;
    int depth = 0;
    for (size_t i = 0; i < tokens.size(); ++i) {
        depth += tokens[i] == "{" ? 1 : tokens[i] == "}" ? -1 : 0;
        if (depth != 0 || tokens[i] != name || i < 2 || i + 1 >= tokens.size() ||
            tokens[i + 1] != ";" || tokens[i - 1] != type) {
            continue;
        }
        size_t qualifier = i - 2;
        if (isPrecision(tokens[qualifier]) && qualifier > 0) {
            --qualifier;
        }
        if (tokens[qualifier] == qualifiers[0] || tokens[qualifier] == qualifiers[1]) {
            ++found;
        }
    }
    return found == 1;
}

// Whether a statement of main before `end` could declare something named `name` (a local that
// would hide the file-scope one).
bool mayBeHidden(const std::vector<std::string>& tokens, size_t begin, size_t end,
                 const std::string& name) {
    int parentheses = 0;
    for (size_t i = begin; i < end; ++i) {
        parentheses += tokens[i] == "(" ? 1 : tokens[i] == ")" ? -1 : 0;
        if (tokens[i] != name || i == 0) {
            continue;
        }
        const std::string& previous = tokens[i - 1];
        if (isIdentifier(previous) || (previous == "," && parentheses == 0)) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::optional<PositionForm> PositionForm::of(const std::string& vertexSource) {
    std::vector<std::string> tokens;
    if (!tokenize(vertexSource, &tokens)) {
        return std::nullopt;
    }
    // main's body: after `void main ( [void] ) {`, at file scope.
    size_t body = 0;
    int depth = 0;
    for (size_t i = 0; i + 4 < tokens.size() && body == 0; ++i) {
        depth += tokens[i] == "{" ? 1 : tokens[i] == "}" ? -1 : 0;
        if (depth != 0 || tokens[i] != "void" || tokens[i + 1] != "main" || tokens[i + 2] != "(") {
            continue;
        }
        size_t close = i + 3;
        if (tokens[close] == "void") {
            ++close;
        }
        if (tokens[close] == ")" && close + 1 < tokens.size() && tokens[close + 1] == "{") {
            body = close + 2;
        }
    }
    if (body == 0) {
        return std::nullopt;
    }
    size_t position = 0;
    size_t bodyEnd = tokens.size();
    depth = 1;
    for (size_t i = body; i < tokens.size(); ++i) {
        depth += tokens[i] == "{" ? 1 : tokens[i] == "}" ? -1 : 0;
        if (depth == 0) {
            bodyEnd = i;
            break;
        }
        if (tokens[i] == "return") {
            return std::nullopt;
        }
        if (tokens[i] == "gl_Position") {
            // Unconditional: a statement of its own, directly in main's block.
            const std::string& previous = tokens[i - 1];
            if (depth != 1 || position != 0 ||
                (previous != ";" && previous != "{" && previous != "}")) {
                return std::nullopt;
            }
            position = i;
        }
    }
    size_t count = 0;
    for (const std::string& token : tokens) {
        count += token == "gl_Position" ? 1 : 0;
        if (token == "gl_ClipDistance" || token == "gl_CullDistance") {
            return std::nullopt;  // user clip planes cut into the primitives
        }
    }
    if (position == 0 || count != 1 || bodyEnd == tokens.size()) {
        return std::nullopt;
    }

    // gl_Position = [m *] vec4 ( a , 0 , 1 ) ;
    PositionForm form;
    size_t at = position + 1;
    auto next = [&](size_t ahead) -> const std::string& {
        static const std::string kNone;
        return at + ahead < bodyEnd ? tokens[at + ahead] : kNone;
    };
    if (next(0) != "=") {
        return std::nullopt;
    }
    ++at;
    if (isIdentifier(next(0)) && next(1) == "*") {
        form.projection = next(0);
        at += 2;
    }
    if (next(0) != "vec4" || next(1) != "(" || !isIdentifier(next(2)) || next(3) != "," ||
        !isNumber(next(4), 0.0) || next(5) != "," || !isNumber(next(6), 1.0) || next(7) != ")" ||
        next(8) != ";") {
        return std::nullopt;
    }
    form.attribute = next(2);

    static const char* const kAttribute[2] = {"in", "attribute"};
    static const char* const kUniform[2] = {"uniform", "uniform"};
    if (!declaredOnce(tokens, form.attribute, kAttribute, "vec2") ||
        mayBeHidden(tokens, body, position, form.attribute)) {
        return std::nullopt;
    }
    if (!form.projection.empty() && (!declaredOnce(tokens, form.projection, kUniform, "mat4") ||
                                     mayBeHidden(tokens, body, position, form.projection))) {
        return std::nullopt;
    }
    return form;
}

bool PositionForm::dropsFragments(const std::string& source) {
    std::vector<std::string> tokens;
    if (!tokenize(source, &tokens)) {
        // Could be anything.
        return true;
    }
    for (const std::string& token : tokens) {
        if (token == "discard" || token == "gl_SampleMask") {
            return true;
        }
    }
    return false;
}

}  // namespace hostgpu
}  // namespace zel
