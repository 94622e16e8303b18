/*
 * Hand-written EGL image entry points: EGL_NATIVE_BUFFER_ANDROID images of host buffers are the
 * layer's own (with EGL_IMAGE_PRESERVED_KHR, the EGL_ANDROID_image_crop rectangle and
 * EGL_PROTECTED_CONTENT_EXT); other targets go to the driver, never without a context (the driver
 * does not survive image creation without one).
 */
#include <algorithm>

#include <hardware/gralloc.h>
#include <system/window.h>
#include <zel/host/Gralloc.h>

#include "AttribList.h"
#include "Counters.h"
#include "DisplayRegistry.h"
#include "EglError.h"
#include "HandleRegistry.h"
#include "ImageFormat.h"
#include "MesaDriver.h"
#include "NativeBufferImage.h"

using zel::hostgpu::AttribList;
using zel::hostgpu::Counter;
using zel::hostgpu::Counters;
using zel::hostgpu::DisplayRegistry;
using zel::hostgpu::DisplayState;
using zel::hostgpu::EglError;
using zel::hostgpu::ImageFormat;
using zel::hostgpu::mesa;
using zel::hostgpu::NativeBufferImage;

namespace {

using Images = zel::hostgpu::HandleRegistry<NativeBufferImage>;

EGLImageKHR failure(EGLint error) {
    EglError::set(error);
    return EGL_NO_IMAGE_KHR;
}

// The crop rectangle of EGL_ANDROID_image_crop, clamped to the buffer; the whole buffer when the
// attributes leave nothing inside it.
NativeBufferImage::Crop cropOf(const AttribList& attribs, const ANativeWindowBuffer& buffer) {
    const EGLint width = buffer.width;
    const EGLint height = buffer.height;
    const EGLint left = std::clamp(attribs.get(EGL_IMAGE_CROP_LEFT_ANDROID, 0), 0, width);
    const EGLint top = std::clamp(attribs.get(EGL_IMAGE_CROP_TOP_ANDROID, 0), 0, height);
    const EGLint right = std::clamp(attribs.get(EGL_IMAGE_CROP_RIGHT_ANDROID, width), 0, width);
    const EGLint bottom = std::clamp(attribs.get(EGL_IMAGE_CROP_BOTTOM_ANDROID, height), 0, height);
    NativeBufferImage::Crop crop;
    if (right <= left || bottom <= top) {
        crop.width = static_cast<uint32_t>(width);
        crop.height = static_cast<uint32_t>(height);
        return crop;
    }
    crop.left = static_cast<uint32_t>(left);
    crop.top = static_cast<uint32_t>(top);
    crop.width = static_cast<uint32_t>(right - left);
    crop.height = static_cast<uint32_t>(bottom - top);
    return crop;
}

EGLImageKHR createNativeBufferImage(DisplayState& display, EGLContext ctx, EGLClientBuffer buffer,
                                    const AttribList& attribs) {
    if (!display.hasExtension("EGL_ANDROID_image_native_buffer")) {
        return failure(EGL_BAD_PARAMETER);
    }
    if (ctx != EGL_NO_CONTEXT) {
        return failure(EGL_BAD_CONTEXT);
    }
    auto* nativeBuffer = static_cast<ANativeWindowBuffer*>(buffer);
    zel::host::BufferLayout layout;
    if (nativeBuffer == nullptr || nativeBuffer->common.magic != ANDROID_NATIVE_BUFFER_MAGIC ||
        nativeBuffer->common.version != static_cast<int>(sizeof(ANativeWindowBuffer)) ||
        !zel::host::getBufferLayout(nativeBuffer->handle, &layout)) {
        return failure(EGL_BAD_PARAMETER);
    }
    const ImageFormat* format = ImageFormat::find(layout.format);
    if (format == nullptr) {
        return failure(EGL_BAD_PARAMETER);
    }
    const bool crops = display.hasExtension("EGL_ANDROID_image_crop");
    bool isProtected = false;
    for (const auto& [name, value] : attribs.pairs()) {
        switch (name) {
            case EGL_IMAGE_PRESERVED_KHR:
                // Buffer memory is the truth: contents are always preserved.
                break;
            case EGL_IMAGE_CROP_LEFT_ANDROID:
            case EGL_IMAGE_CROP_TOP_ANDROID:
            case EGL_IMAGE_CROP_RIGHT_ANDROID:
            case EGL_IMAGE_CROP_BOTTOM_ANDROID:
                if (!crops) {
                    return failure(EGL_BAD_PARAMETER);
                }
                break;
            case EGL_PROTECTED_CONTENT_EXT:
                isProtected = value == EGL_TRUE;
                break;
            default:
                return failure(EGL_BAD_PARAMETER);
        }
    }
    // Protected memory only goes into protected images; the Khronos text also refuses a
    // protected image of memory that is not protected.
    const bool protectedMemory = (nativeBuffer->usage & GRALLOC_USAGE_PROTECTED) != 0;
    if ((protectedMemory && !isProtected) ||
        (display.profile().conformant && isProtected && !protectedMemory)) {
        return failure(EGL_BAD_ACCESS);
    }
    if (display.profile().failImageCreation) {
        return failure(EGL_BAD_ALLOC);
    }
    std::shared_ptr<NativeBufferImage> image = NativeBufferImage::create(
        display.display(), nativeBuffer, *format, cropOf(attribs, *nativeBuffer), isProtected);
    if (!image) {
        return failure(EGL_BAD_PARAMETER);
    }
    Counters::add(Counter::ImagesCreated);
    EglError::set(EGL_SUCCESS);
    return Images::instance().add(std::move(image));
}

// Images the layer answers itself: its own target, and any image asked for without a context
// (the driver must not see those).
EGLImageKHR createImage(EGLDisplay dpy, EGLContext ctx, EGLenum target, EGLClientBuffer buffer,
                        const AttribList& attribs) {
    DisplayState* display = DisplayRegistry::instance().initialized(dpy);
    if (display == nullptr) {
        return EGL_NO_IMAGE_KHR;
    }
    if (target == EGL_NATIVE_BUFFER_ANDROID) {
        return createNativeBufferImage(*display, ctx, buffer, attribs);
    }
    // GL targets need the context that owns the GL object.
    const bool glTarget = target >= EGL_GL_TEXTURE_2D_KHR && target <= EGL_GL_RENDERBUFFER_KHR;
    return failure(glTarget ? EGL_BAD_CONTEXT : EGL_BAD_PARAMETER);
}

EGLBoolean destroyImage(EGLDisplay dpy, EGLImageKHR image) {
    std::shared_ptr<NativeBufferImage> ours = Images::instance().find(image);
    if (!ours || ours->display() != dpy || !Images::instance().remove(image)) {
        EglError::set(EGL_BAD_PARAMETER);
        return EGL_FALSE;
    }
    EglError::set(EGL_SUCCESS);
    return EGL_TRUE;
}

}  // namespace

extern "C" {

EGLImageKHR EGLAPIENTRY eglCreateImageKHR(EGLDisplay dpy, EGLContext ctx, EGLenum target,
                                          EGLClientBuffer buffer, const EGLint* attrib_list) {
    if (target == EGL_NATIVE_BUFFER_ANDROID || ctx == EGL_NO_CONTEXT) {
        return createImage(dpy, ctx, target, buffer, AttribList::fromInts(attrib_list));
    }
    EglError::deferToDriver();
    return mesa().eglCreateImageKHR(dpy, ctx, target, buffer, attrib_list);
}

EGLBoolean EGLAPIENTRY eglDestroyImageKHR(EGLDisplay dpy, EGLImageKHR image) {
    if (Images::instance().find(image)) {
        return destroyImage(dpy, image);
    }
    EglError::deferToDriver();
    return mesa().eglDestroyImageKHR(dpy, image);
}

EGLImage EGLAPIENTRY eglCreateImage(EGLDisplay dpy, EGLContext ctx, EGLenum target,
                                    EGLClientBuffer buffer, const EGLAttrib* attrib_list) {
    if (target == EGL_NATIVE_BUFFER_ANDROID || ctx == EGL_NO_CONTEXT) {
        return createImage(dpy, ctx, target, buffer, AttribList::fromAttribs(attrib_list));
    }
    EglError::deferToDriver();
    return mesa().eglCreateImage(dpy, ctx, target, buffer, attrib_list);
}

EGLBoolean EGLAPIENTRY eglDestroyImage(EGLDisplay dpy, EGLImage image) {
    if (Images::instance().find(image)) {
        return destroyImage(dpy, image);
    }
    EglError::deferToDriver();
    return mesa().eglDestroyImage(dpy, image);
}

}  // extern "C"
