/*
 * <zel/host/Gpu.h>: the layer's control interface.
 */
#include <zel/host/Gpu.h>

#include <cstdio>

#include "Counters.h"
#include "DisplaySelection.h"
#include "DriverProfileStore.h"
#include "FenceCompleter.h"
#include "FenceFdTracker.h"
#include "GlErrorQueue.h"
#include "MesaDriver.h"

namespace zel {
namespace host {

namespace {

using hostgpu::Counter;
using hostgpu::Counters;

struct Availability {
    bool available = false;
    std::string reason;
};

Availability probe() {
    const hostgpu::MesaDriver& driver = hostgpu::MesaDriver::instance();
    if (!driver.loaded()) {
        return {false, driver.failure()};
    }
    // Straight to the driver: a probe must not show up in the counters.
    EGLDisplay display = hostgpu::surfacelessDisplay();
    if (display == EGL_NO_DISPLAY) {
        return {false, "the EGL driver " + driver.library() + " has no surfaceless display"};
    }
    EGLint major = 0;
    EGLint minor = 0;
    if (!hostgpu::mesa().eglInitialize(display, &major, &minor)) {
        char reason[160];
        snprintf(reason, sizeof(reason),
                 "the surfaceless display of %s does not initialise (EGL error 0x%04x)",
                 driver.library().c_str(), static_cast<unsigned>(hostgpu::mesa().eglGetError()));
        return {false, reason};
    }
    hostgpu::MesaDriver::keepDriverModulesLoaded();
    return {true, ""};
}

const Availability& availability() {
    static const Availability* const result = new Availability(probe());
    return *result;
}

}  // namespace

void injectGlError(unsigned error) {
    hostgpu::GlErrorQueue::push(static_cast<GLenum>(error));
}

GpuCounters gpuCounters() {
    GpuCounters counters;
    counters.contextsCreated = Counters::get(Counter::ContextsCreated);
    counters.displaysInitialized = Counters::get(Counter::DisplaysInitialized);
    counters.imagesCreated = Counters::get(Counter::ImagesCreated);
    counters.shadersCompiled = Counters::get(Counter::ShadersCompiled);
    counters.programsLinked = Counters::get(Counter::ProgramsLinked);
    counters.draws = Counters::get(Counter::Draws);
    counters.uploads = Counters::get(Counter::Uploads);
    counters.writeBacks = Counters::get(Counter::WriteBacks);
    counters.fenceFdsCreated = Counters::get(Counter::FenceFdsCreated);
    counters.programVariants = Counters::get(Counter::ProgramVariants);
    counters.internalPasses = Counters::get(Counter::InternalPasses);
    counters.coveredTargets = Counters::get(Counter::CoveredTargets);
    counters.contextsAlive = Counters::get(Counter::ContextsAlive);
    counters.imagesAlive = Counters::get(Counter::ImagesAlive);
    counters.buffersAlive = Counters::get(Counter::BuffersAlive);
    counters.texturesAlive = Counters::get(Counter::TexturesAlive);
    counters.programsAlive = Counters::get(Counter::ProgramsAlive);
    counters.framebuffersAlive = Counters::get(Counter::FramebuffersAlive);
    counters.fenceFdsOpen = hostgpu::FenceFdTracker::instance().openCount();
    return counters;
}

void resetGpuCounters() {
    Counters::resetCumulative();
}

bool parseDriverProfile(const std::string& switches, DriverProfile* outProfile,
                        std::string* outError) {
    return hostgpu::DriverProfileStore::parse(switches, outProfile, outError);
}

void setDriverProfile(const DriverProfile& profile) {
    hostgpu::DriverProfileStore::instance().set(profile);
}

bool setDriverProfile(const std::string& switches) {
    DriverProfile profile;
    if (!parseDriverProfile(switches, &profile)) {
        return false;
    }
    setDriverProfile(profile);
    return true;
}

DriverProfile driverProfile() {
    return hostgpu::DriverProfileStore::instance().current();
}

void resetDriverProfile() {
    hostgpu::DriverProfileStore::instance().reset();
}

void waitGpuIdle() {
    hostgpu::FenceCompleter::instance().waitIdle();
}

bool gpuAvailable() {
    return availability().available;
}

std::string gpuUnavailableReason() {
    return availability().reason;
}

}  // namespace host
}  // namespace zel
