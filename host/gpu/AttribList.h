/*
 * An EGL attribute list as name/value pairs, so that entry points can take out the attributes
 * the layer answers itself and hand the rest to the driver.
 */
#pragma once

#include <utility>
#include <vector>

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class AttribList {
public:
    AttribList() = default;
    // A list ended by EGL_NONE; null is an empty list.
    static AttribList fromInts(const EGLint* list);
    static AttribList fromAttribs(const EGLAttrib* list);

    bool has(EGLint name) const;
    // The value of the first `name`, or `fallback`.
    EGLint get(EGLint name, EGLint fallback) const;
    // Removes every `name`; true (with the first value in *outValue, if given) when there was one.
    bool take(EGLint name, EGLint* outValue = nullptr);
    // Replaces the value of `name`, or appends the pair.
    void set(EGLint name, EGLint value);

    const std::vector<std::pair<EGLint, EGLint>>& pairs() const { return mPairs; }
    // The list for the driver, ended by EGL_NONE.
    std::vector<EGLint> ints() const;

private:
    std::vector<std::pair<EGLint, EGLint>> mPairs;
};

}  // namespace hostgpu
}  // namespace zel
