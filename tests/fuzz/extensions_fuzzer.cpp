/*
 * Extension strings as drivers hand them over, split into names and turned into the registry's
 * flags. Beyond memory safety it checks, against a split written here, that every name of the
 * string is found whole, that nothing else is (no prefix, no neighbour glued on), and that a
 * flag whose name is present is set by the matching init call.
 */
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include <fuzzer/FuzzedDataProvider.h>

#include <zel/host/Log.h>

#include "ExtensionSet.h"
#include "Extensions.h"

namespace {

using kav::zel::gl::Extensions;
using kav::zel::gl::ExtensionSet;

std::set<std::string> namesOf(const std::string& text) {
    std::set<std::string> names;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find(' ', start);
        if (end == std::string::npos) {
            end = text.size();
        }
        if (end > start) {
            names.insert(text.substr(start, end - start));
        }
        start = end + 1;
    }
    return names;
}

void check(bool condition) {
    if (!condition) {
        __builtin_trap();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    ::zel::host::setLogToStderr(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const std::string probe = input.ConsumeRandomLengthString(64);
    const std::string version = input.ConsumeRandomLengthString(64);
    // The library sees C strings: whatever follows a NUL is not part of them.
    const std::string text = input.ConsumeRemainingBytesAsString();
    const std::string cText = text.c_str();

    const ExtensionSet set(cText.c_str());
    const std::set<std::string> names = namesOf(cText);
    check(set.size() == names.size());
    for (const std::string& name : names) {
        check(set.hasExtension(name.c_str()));
    }
    check(set.hasExtension(probe.c_str()) == (names.count(probe.c_str()) != 0));

    Extensions& extensions = Extensions::getInstance();
    if (!probe.empty() && (probe[0] & 1) != 0) {
        extensions.initWithEGLStrings(version.c_str(), cText.c_str());
        check(extensions.getEGLExtensions() == android::String8(cText.c_str()));
        check(extensions.getEGLVersion() == android::String8(version.c_str()));
        const bool noConfig = names.count("EGL_KHR_no_config_context") != 0 ||
                              names.count("EGL_ANDROIDX_no_config_context") != 0;
        check(!noConfig || extensions.hasNoConfigContext());
        check(!names.count("EGL_ANDROID_native_fence_sync") || extensions.hasNativeFenceSync());
        check(!names.count("EGL_KHR_surfaceless_context") || extensions.hasSurfacelessContext());
        check(!names.count("EGL_EXT_protected_content") || extensions.hasProtectedContent());
        check(!names.count("EGL_ANDROID_image_crop") || extensions.hasImageCrop());
    } else {
        const auto* bytes = reinterpret_cast<const GLubyte*>(cText.c_str());
        const auto* versionBytes = reinterpret_cast<const GLubyte*>(version.c_str());
        extensions.initWithGLStrings(versionBytes, versionBytes, versionBytes, bytes);
        check(extensions.getExtensions() == android::String8(cText.c_str()));
        check(extensions.getVersion() == android::String8(version.c_str()));
        check(!names.count("GL_EXT_YUV_target") || extensions.hasYUVTarget());
        check(!names.count("GL_OES_EGL_image_external_essl3") || extensions.hasOESTextureESSL3());
        check(!names.count("GL_EXT_protected_textures") || extensions.hasProtectedTexture());
    }
    return 0;
}
