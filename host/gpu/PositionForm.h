/*
 * What the layer can prove about where a vertex shader puts its vertices: a shader whose main
 * writes gl_Position exactly once, unconditionally, as vec4(a, 0.0, 1.0) or as
 * m * vec4(a, 0.0, 1.0), with `a` an attribute declared `in vec2` (or `attribute vec2`) and `m` a
 * `uniform mat4`, places each vertex where the attribute's value (through the uniform's matrix)
 * says. Draws with such a program can be checked for covering their render target before they run
 * (DrawCoverage). Any other shape, any preprocessor directive beyond #version and #extension, an
 * early return, a local declaration that could hide the attribute or the matrix, or clip or cull
 * distances, and the form is unknown.
 */
#pragma once

#include <optional>
#include <string>

namespace zel {
namespace hostgpu {

struct PositionForm {
    std::string attribute;   // the vec2 attribute
    std::string projection;  // the mat4 uniform; empty when the position is the attribute itself

    static std::optional<PositionForm> of(const std::string& vertexSource);
    // Whether a shader may leave out fragments of what it rasterises (discard, gl_SampleMask).
    static bool dropsFragments(const std::string& source);
};

}  // namespace hostgpu
}  // namespace zel
