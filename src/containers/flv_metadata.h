// The tags of an FLV file (Video File Format, version 10) that are not media: the frame around every tag
// and the script tag "onMetaData".
#pragma once

#include <cstdint>

#include "codec/flv_tag.h"
#include "core/byte_writer.h"

namespace Orvane::Muxora {

// The 11 bytes ahead of a tag's data.
void WriteFlvTagHeader(ByteCursor& out, FlvTagType type, uint32_t data_size, uint32_t time);

// What "onMetaData" says. Rates that nothing measures stay 0.
struct FlvMetadata {
    // The whole tag with its PreviousTagSize, whatever the values.
    static constexpr uint32_t kTagSize = 266;

    void WriteTag(ByteCursor& out) const;

    double duration = 0;  // seconds
    double width = 0;
    double height = 0;
    double videodatarate = 0;
    double framerate = 0;
    double videocodecid = 0;
    double audiodatarate = 0;
    double audiosamplerate = 0;
    double audiosamplesize = 0;
    bool stereo = false;
    double audiocodecid = 0;
    double filesize = 0;
};

}  // namespace Orvane::Muxora
