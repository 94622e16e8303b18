/*
 * Host stand-in for Android's graphics HAL 1.2 types header: the scoped enums
 * android::hardware::graphics::common::V1_2::Dataspace and PixelFormat. On the host they are
 * defined once, in <ui/GraphicTypes.h>, with the values of <system/graphics.h>; this path exists
 * so that code written against the HAL header compiles unchanged.
 */
#pragma once

#include <ui/GraphicTypes.h>
