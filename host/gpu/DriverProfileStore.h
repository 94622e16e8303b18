/*
 * The driver profile in force for the process: the one of ZEL_HOST_DRIVER until code sets
 * another. Displays and contexts copy it when they are created.
 */
#pragma once

#include <mutex>
#include <string>

#include <zel/host/Gpu.h>

namespace zel {
namespace hostgpu {

class DriverProfileStore {
public:
    static DriverProfileStore& instance();

    host::DriverProfile current() const;
    void set(const host::DriverProfile& profile);
    // Back to the environment's profile.
    void reset();

    // ZEL_HOST_DRIVER syntax (documented in <zel/host/Gpu.h>).
    static bool parse(const std::string& switches, host::DriverProfile* outProfile,
                      std::string* outError);

private:
    DriverProfileStore();
    static host::DriverProfile fromEnvironment();

    mutable std::mutex mMutex;
    host::DriverProfile mProfile;
};

}  // namespace hostgpu
}  // namespace zel
