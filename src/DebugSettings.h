/*
 * Loading of the debug switches from system properties. Called at the start of every GLES
 * renderer creation; nothing else reads the properties.
 */
#pragma once

namespace kav {
namespace zel {

// System properties behind ZEL_debug_level, ZEL_debug_dump and ZEL_debug_trace.
constexpr const char kLogLevelProperty[] = "vendor.kav.c2.enable.zel.log";
constexpr const char kDumpProperty[] = "vendor.kav.c2.zel.dump";
constexpr const char kSystraceProperty[] = "vendor.kav.c2.zel.systrace";

// Reloads all three globals. Text that atoi reads as 0 turns a switch off.
void loadDebugProperties();

}  // namespace zel
}  // namespace kav
