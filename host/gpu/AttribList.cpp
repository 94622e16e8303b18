#include "AttribList.h"

#include <algorithm>

namespace zel {
namespace hostgpu {

AttribList AttribList::fromInts(const EGLint* list) {
    AttribList result;
    for (; list != nullptr && list[0] != EGL_NONE; list += 2) {
        result.mPairs.emplace_back(list[0], list[1]);
    }
    return result;
}

AttribList AttribList::fromAttribs(const EGLAttrib* list) {
    AttribList result;
    for (; list != nullptr && list[0] != EGL_NONE; list += 2) {
        result.mPairs.emplace_back(static_cast<EGLint>(list[0]), static_cast<EGLint>(list[1]));
    }
    return result;
}

bool AttribList::has(EGLint name) const {
    return std::any_of(mPairs.begin(), mPairs.end(),
                       [name](const auto& pair) { return pair.first == name; });
}

EGLint AttribList::get(EGLint name, EGLint fallback) const {
    for (const auto& [key, value] : mPairs) {
        if (key == name) {
            return value;
        }
    }
    return fallback;
}

bool AttribList::take(EGLint name, EGLint* outValue) {
    const bool found = has(name);
    if (found && outValue != nullptr) {
        *outValue = get(name, 0);
    }
    mPairs.erase(std::remove_if(mPairs.begin(), mPairs.end(),
                                [name](const auto& pair) { return pair.first == name; }),
                 mPairs.end());
    return found;
}

void AttribList::set(EGLint name, EGLint value) {
    for (auto& pair : mPairs) {
        if (pair.first == name) {
            pair.second = value;
            return;
        }
    }
    mPairs.emplace_back(name, value);
}

std::vector<EGLint> AttribList::ints() const {
    std::vector<EGLint> list;
    list.reserve(mPairs.size() * 2 + 1);
    for (const auto& [key, value] : mPairs) {
        list.push_back(key);
        list.push_back(value);
    }
    list.push_back(EGL_NONE);
    return list;
}

}  // namespace hostgpu
}  // namespace zel
