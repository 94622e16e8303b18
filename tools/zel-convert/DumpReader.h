/*
 * A raw buffer dump written by the library: the whole allocation of one buffer, rows with their
 * padding, named <pid>_<tid>_W_<w>_H_<h>_P_<format>_<tag>#<n>.raw. Size and format come from the
 * name, the row pitch from the file size: a dump taken on a phone with other strides replays
 * like one taken here.
 */
#pragma once

#include "PictureReader.h"

namespace zel::convert {

struct DumpName {
    int width = 0;
    int height = 0;
    int32_t format = 0;
    std::string tag;
};

class DumpReader : public PictureReader {
public:
    // True when the file name (its last component) is a dump's.
    static bool parseName(const std::string& path, DumpName* out);
    static ToolError open(std::unique_ptr<InputFile> file, const DumpName& name,
                          std::unique_ptr<FrameReader>* out);
};

}  // namespace zel::convert
