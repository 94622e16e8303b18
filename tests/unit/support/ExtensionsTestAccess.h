/*
 * Test access to the process-wide extension registry: its flags are only ever set, so a test
 * that relies on a flag being clear starts from an empty registry, as a fresh process would.
 */
#pragma once

#include "Extensions.h"

namespace kav {
namespace zel {
namespace gl {

class ExtensionsTestAccess {
public:
    static void reset() { Extensions::getInstance().clearAll(); }
};

}  // namespace gl
}  // namespace zel
}  // namespace kav
