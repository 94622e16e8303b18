#include "PixelFormat.h"

#include <strings.h>

#include <cstdlib>

namespace zel::convert {

const std::vector<PixelFormat>& PixelFormat::all() {
    static const std::vector<PixelFormat> kFormats = {
        {"rgba", 0x1, "rgba", FrameLayout::Rgba, "RGBA_8888"},
        {"nv21", 0x11, "nv21", FrameLayout::Nv21, "YCrCb_420_SP"},
        {"nv12", 0x23, "nv12", FrameLayout::Nv12, "YCbCr_420_888 (NV12 layout)"},
        {"p010le", 0x36, "p010le", FrameLayout::P010, "YCBCR_P010"},
        {"yv12", 0x32315659, nullptr, FrameLayout::Yv12, "YV12 (Y, then Cr, then Cb)"},
        {"vendor-nv12", 0x1000, "nv12", FrameLayout::Nv12, "vendor 4:2:0, NV12 layout"},
        {"vendor-nv12b", 0x7f000030, "nv12", FrameLayout::Nv12, "vendor 4:2:0, NV12 layout"},
        {"vendor-nv21", 0x7f000010, "nv21", FrameLayout::Nv21, "vendor 4:2:0, NV21 layout"},
    };
    return kFormats;
}

const PixelFormat* PixelFormat::find(const std::string& nameOrValue) {
    for (const PixelFormat& format : all()) {
        if (strcasecmp(format.name, nameOrValue.c_str()) == 0) {
            return &format;
        }
    }
    if (strcasecmp(nameOrValue.c_str(), "p010") == 0) {
        return byAndroid(0x36);
    }
    char* end = nullptr;
    const long value = std::strtol(nameOrValue.c_str(), &end, 0);
    if (!nameOrValue.empty() && end != nullptr && *end == '\0') {
        return byAndroid(static_cast<int32_t>(value));
    }
    return nullptr;
}

const PixelFormat* PixelFormat::byAndroid(int32_t value) {
    for (const PixelFormat& format : all()) {
        if (format.android == value) {
            return &format;
        }
    }
    return nullptr;
}

}  // namespace zel::convert
