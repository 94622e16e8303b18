/*
 * An input that holds one picture, decoded when it is opened (a PNG file, a buffer dump).
 */
#pragma once

#include "FrameReader.h"

namespace zel::convert {

class PictureReader : public FrameReader {
public:
    ToolError read(Frame& frame, bool* done) override {
        *done = mFramesRead > 0;
        if (!*done) {
            frame = mPicture;
            ++mFramesRead;
        }
        return {};
    }

protected:
    // Takes the decoded picture as the input's only frame, in the format it goes into.
    void setPicture(Frame picture, const PixelFormat* format) {
        mPicture = std::move(picture);
        mWidth = mPicture.width();
        mHeight = mPicture.height();
        mLayout = mPicture.layout();
        mFormat = format;
        mFrameCount = 1;
    }

private:
    Frame mPicture;
};

}  // namespace zel::convert
