/*
 * The pixel formats zel-convert knows: each with its Android HAL value, the FFmpeg pixel-format
 * name where FFmpeg has one (the name raw files use), and how its frames are laid out.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zel::convert {

// How the samples of a frame lie in memory, in a raw file as FFmpeg writes it.
enum class FrameLayout {
    Rgba,  // R, G, B, A bytes per pixel
    Nv12,  // Y plane, then interleaved Cb, Cr at half resolution
    Nv21,  // Y plane, then interleaved Cr, Cb
    P010,  // as Nv12 with 16-bit little-endian samples, 10 bits in the high bits
    Yv12,  // Y plane, then the Cr plane, then the Cb plane
    I420,  // Y plane, then the Cb plane, then the Cr plane (YUV4MPEG2 4:2:0)
    I010,  // as I420 with 16-bit little-endian samples, 10 bits in the low bits
};

struct PixelFormat {
    const char* name;         // what the command line takes (FFmpeg's name where one exists)
    int32_t android;          // HAL pixel format
    const char* ffmpeg;       // FFmpeg pixel format of a raw frame, or nullptr
    FrameLayout layout;       // layout of a raw frame of this format
    const char* description;  // for --list-formats

    bool isYuv() const { return layout != FrameLayout::Rgba; }
    int bitDepth() const { return layout == FrameLayout::P010 ? 10 : 8; }

    // Every format, in --list-formats order.
    static const std::vector<PixelFormat>& all();
    // By name (case-insensitive) or Android value (decimal or 0x hex); nullptr when unknown.
    static const PixelFormat* find(const std::string& nameOrValue);
    static const PixelFormat* byAndroid(int32_t value);
};

}  // namespace zel::convert
