#include "DisplayState.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "DriverProfileStore.h"
#include "MesaDriver.h"
#include "StringPool.h"

namespace zel {
namespace hostgpu {

namespace {

// What the layer implements on top of the driver.
constexpr const char* kLayerExtensions[] = {
    "EGL_ANDROID_image_native_buffer", "EGL_ANDROID_native_fence_sync",  "EGL_ANDROID_image_crop",
    "EGL_ANDROID_recordable",          "EGL_ANDROID_framebuffer_target", "EGL_IMG_context_priority",
    "EGL_EXT_protected_content",
};

// HAL_PIXEL_FORMAT_* values of <system/graphics.h>.
constexpr EGLint kHalRgba8888 = 1;
constexpr EGLint kHalRgbx8888 = 2;
constexpr EGLint kHalRgb565 = 4;
constexpr EGLint kHalRgbaFp16 = 0x16;
constexpr EGLint kHalRgba1010102 = 0x2B;

}  // namespace

void DisplayState::addInitialization() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mInitCount == 0) {
        takeProfileLocked();
    }
    ++mInitCount;
}

bool DisplayState::dropInitialization() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mInitCount > 1) {
        --mInitCount;
        return false;
    }
    return true;
}

void DisplayState::terminated() {
    std::lock_guard<std::mutex> lock(mMutex);
    mInitCount = 0;
    // The driver makes its configs anew when the display comes back.
    mHalFormats.clear();
}

host::DriverProfile DisplayState::profile() const {
    std::lock_guard<std::mutex> lock(mMutex);
    if (!mHasProfile) {
        // Initialised behind the layer's back (or not at all): the profile in force applies.
        return DriverProfileStore::instance().current();
    }
    return mProfile;
}

void DisplayState::takeProfileLocked() {
    mProfile = DriverProfileStore::instance().current();
    mHasProfile = true;
    mExtensions = nullptr;
    mExtensionNames.clear();
}

bool DisplayState::composeLocked() {
    if (mExtensions != nullptr) {
        return true;
    }
    const char* driver = mesa().eglQueryString(mDisplay, EGL_EXTENSIONS);
    if (driver == nullptr) {
        return false;
    }
    if (!mHasProfile) {
        takeProfileLocked();
    }
    std::vector<std::string> names;
    std::istringstream words(driver);
    for (std::string name; words >> name;) {
        names.push_back(name);
    }
    names.insert(names.end(), std::begin(kLayerExtensions), std::end(kLayerExtensions));
    names.insert(names.end(), mProfile.addedEglExtensions.begin(),
                 mProfile.addedEglExtensions.end());

    std::string text;
    mExtensionNames.clear();
    for (const std::string& name : names) {
        const auto& removed = mProfile.removedEglExtensions;
        if (std::find(removed.begin(), removed.end(), name) != removed.end() ||
            !mExtensionNames.insert(name).second) {
            continue;
        }
        text += name;
        text += ' ';
    }
    mExtensions = StringPool::intern(text);
    return true;
}

const char* DisplayState::extensions() {
    std::lock_guard<std::mutex> lock(mMutex);
    return composeLocked() ? mExtensions : nullptr;
}

bool DisplayState::hasExtension(const std::string& name) {
    std::lock_guard<std::mutex> lock(mMutex);
    return composeLocked() && mExtensionNames.count(name) != 0;
}

EGLint DisplayState::halFormat(EGLConfig config) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = mHalFormats.find(config);
        if (it != mHalFormats.end()) {
            return it->second;
        }
    }
    EGLint red = 0, green = 0, blue = 0, alpha = 0;
    EGLint type = EGL_COLOR_COMPONENT_TYPE_FIXED_EXT;
    const MesaFunctions& driver = mesa();
    if (!driver.eglGetConfigAttrib(mDisplay, config, EGL_RED_SIZE, &red) ||
        !driver.eglGetConfigAttrib(mDisplay, config, EGL_GREEN_SIZE, &green) ||
        !driver.eglGetConfigAttrib(mDisplay, config, EGL_BLUE_SIZE, &blue) ||
        !driver.eglGetConfigAttrib(mDisplay, config, EGL_ALPHA_SIZE, &alpha)) {
        return 0;
    }
    if (!driver.eglGetConfigAttrib(mDisplay, config, EGL_COLOR_COMPONENT_TYPE_EXT, &type)) {
        // A driver without EGL_EXT_pixel_format_float has fixed-point configs only.
        driver.eglGetError();
        type = EGL_COLOR_COMPONENT_TYPE_FIXED_EXT;
    }
    EGLint format = 0;
    const bool fixed = type == EGL_COLOR_COMPONENT_TYPE_FIXED_EXT;
    auto sizes = [&](EGLint r, EGLint g, EGLint b, EGLint a) {
        return red == r && green == g && blue == b && alpha == a;
    };
    if (fixed && sizes(8, 8, 8, 8)) {
        format = kHalRgba8888;
    } else if (fixed && sizes(8, 8, 8, 0)) {
        format = kHalRgbx8888;
    } else if (fixed && sizes(5, 6, 5, 0)) {
        format = kHalRgb565;
    } else if (fixed && sizes(10, 10, 10, 2)) {
        format = kHalRgba1010102;
    } else if (!fixed && sizes(16, 16, 16, 16)) {
        format = kHalRgbaFp16;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    mHalFormats[config] = format;
    return format;
}

}  // namespace hostgpu
}  // namespace zel
