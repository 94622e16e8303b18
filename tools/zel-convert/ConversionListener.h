/*
 * Hears the outcome of asynchronous blits: the cookie of each blit is the status it fills in.
 */
#pragma once

#include <zel/Renderer.h>

namespace zel::convert {

class ConversionListener : public kav::zel::Renderer::Listener {
public:
    void onBlitDone(kav::zel::Buffer& /*output*/, void* data) override {
        *static_cast<kav::zel::Status*>(data) = kav::zel::OK;
    }
    void onBlitError(kav::zel::Status status, void* data) override {
        *static_cast<kav::zel::Status*>(data) = status;
    }
};

}  // namespace zel::convert
