#include "ConfigAttributes.h"

#include <vector>

#include "AttribList.h"
#include "EglError.h"
#include "MesaDriver.h"

namespace zel {
namespace hostgpu {

namespace {

// How a criterion compares a config's value with the wanted one.
enum class Match { Exact, Mask };

struct Criterion {
    EGLint attribute;
    EGLint wanted;
    Match match;
};

bool matches(EGLint value, const Criterion& criterion) {
    if (criterion.wanted == EGL_DONT_CARE) {
        return true;
    }
    if (criterion.match == Match::Mask) {
        return (value & criterion.wanted) == criterion.wanted;
    }
    return value == criterion.wanted;
}

}  // namespace

bool ConfigAttributes::answeredByLayer(EGLint attribute) {
    switch (attribute) {
        case EGL_RECORDABLE_ANDROID:
        case EGL_FRAMEBUFFER_TARGET_ANDROID:
        case EGL_NATIVE_VISUAL_ID:
        case EGL_SURFACE_TYPE:
        case EGL_RENDERABLE_TYPE:
        case EGL_CONFORMANT:
        case EGL_CONFIG_CAVEAT:
            return true;
        default:
            return false;
    }
}

bool ConfigAttributes::query(DisplayState& display, EGLConfig config, EGLint attribute,
                             EGLint* outValue) {
    EGLint driverValue = 0;
    const bool driverKnows = attribute == EGL_SURFACE_TYPE || attribute == EGL_RENDERABLE_TYPE ||
                             attribute == EGL_CONFORMANT || attribute == EGL_CONFIG_CAVEAT;
    // Also checks the display and the config.
    if (!mesa().eglGetConfigAttrib(display.display(), config,
                                   driverKnows ? attribute : EGL_CONFIG_ID, &driverValue)) {
        EglError::deferToDriver();
        return false;
    }
    const host::DriverProfile profile = display.profile();
    const EGLint halFormat = display.halFormat(config);
    switch (attribute) {
        case EGL_RECORDABLE_ANDROID:
        case EGL_FRAMEBUFFER_TARGET_ANDROID:
            *outValue = halFormat != 0 && !profile.noAndroidConfigAttributes ? EGL_TRUE : EGL_FALSE;
            break;
        case EGL_NATIVE_VISUAL_ID:
            *outValue = halFormat;
            break;
        case EGL_SURFACE_TYPE:
            *outValue = driverValue | (halFormat != 0 ? EGL_WINDOW_BIT : 0);
            break;
        case EGL_RENDERABLE_TYPE:
        case EGL_CONFORMANT:
            *outValue = profile.es2OnlyConfigs ? driverValue & ~EGL_OPENGL_ES3_BIT : driverValue;
            break;
        case EGL_CONFIG_CAVEAT:
            *outValue = profile.slowConfigs ? EGL_SLOW_CONFIG : driverValue;
            break;
        default:
            *outValue = driverValue;
            break;
    }
    EglError::set(EGL_SUCCESS);
    return true;
}

EGLBoolean ConfigAttributes::choose(DisplayState& display, const EGLint* attribList,
                                    EGLConfig* configs, EGLint configSize, EGLint* numConfig) {
    const MesaFunctions& driver = mesa();
    AttribList attribs = AttribList::fromInts(attribList);
    if (numConfig == nullptr || attribs.get(EGL_CONFIG_ID, EGL_DONT_CARE) != EGL_DONT_CARE) {
        // Errors, and selection by id (which ignores every other criterion), are the driver's.
        EglError::deferToDriver();
        return driver.eglChooseConfig(display.display(), attribList, configs, configSize,
                                      numConfig);
    }

    std::vector<Criterion> criteria;
    EGLint value = 0;
    for (EGLint attribute : {EGL_RECORDABLE_ANDROID, EGL_FRAMEBUFFER_TARGET_ANDROID,
                             EGL_NATIVE_VISUAL_ID, EGL_CONFIG_CAVEAT}) {
        if (attribs.take(attribute, &value)) {
            criteria.push_back({attribute, value, Match::Exact});
        }
    }
    // The driver's configs have no window bit: ask it for the rest of the mask (EGL's default
    // mask is the window bit alone) and check the window bit here.
    const EGLint surfaceType = attribs.get(EGL_SURFACE_TYPE, EGL_WINDOW_BIT);
    if (surfaceType != EGL_DONT_CARE) {
        attribs.set(EGL_SURFACE_TYPE, surfaceType & ~EGL_WINDOW_BIT);
        criteria.push_back({EGL_SURFACE_TYPE, surfaceType, Match::Mask});
    }
    // The driver checks these too; the profile may take bits away.
    for (EGLint attribute : {EGL_RENDERABLE_TYPE, EGL_CONFORMANT}) {
        if (attribs.has(attribute)) {
            criteria.push_back({attribute, attribs.get(attribute, 0), Match::Mask});
        }
    }

    EGLint total = 0;
    if (!driver.eglGetConfigs(display.display(), nullptr, 0, &total)) {
        EglError::deferToDriver();
        return EGL_FALSE;
    }
    std::vector<EGLConfig> candidates(static_cast<size_t>(std::max(total, 1)));
    EGLint found = 0;
    const std::vector<EGLint> driverList = attribs.ints();
    if (!driver.eglChooseConfig(display.display(), driverList.data(), candidates.data(),
                                static_cast<EGLint>(candidates.size()), &found)) {
        EglError::deferToDriver();
        return EGL_FALSE;
    }
    EGLint matched = 0;
    for (EGLint i = 0; i < found; ++i) {
        bool keep = true;
        for (const Criterion& criterion : criteria) {
            EGLint configValue = 0;
            if (!query(display, candidates[i], criterion.attribute, &configValue) ||
                !matches(configValue, criterion)) {
                keep = false;
                break;
            }
        }
        if (!keep) {
            continue;
        }
        if (configs != nullptr) {
            if (matched >= configSize) {
                break;
            }
            configs[matched] = candidates[i];
        }
        ++matched;
    }
    *numConfig = matched;
    EglError::set(EGL_SUCCESS);
    return EGL_TRUE;
}

}  // namespace hostgpu
}  // namespace zel
