/*
 * Control of the host's system properties (what property_get returns), for tests and tools.
 * The store is seeded once, on first use, from the file named by the environment variable
 * ZEL_HOST_PROPERTIES (lines "key=value"; blank lines and lines starting with '#' are skipped).
 */
#pragma once

#include <optional>
#include <string>

namespace zel::host {

// Sets key to value. Unlike property_set, any length is stored; property_get truncates on read.
void setProperty(const std::string& key, const std::string& value);
void clearProperty(const std::string& key);
// Removes every property, including those seeded from ZEL_HOST_PROPERTIES.
void clearProperties();
std::optional<std::string> getProperty(const std::string& key);
// Clears the store and seeds it again from ZEL_HOST_PROPERTIES as it is set now.
void reloadPropertiesFromEnvironment();

}  // namespace zel::host
