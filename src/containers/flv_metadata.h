// The tags of an FLV file (Video File Format, version 10) that are not media: the frame around every tag
// and the script tag "onMetaData".
#pragma once

#include <cstdint>

#include "core/byte_writer.h"

namespace Orvane::Muxora {

enum class FlvTagType : uint8_t { Audio = 8, Video = 9, Script = 18 };

constexpr uint32_t kFlvTagHeaderSize = 11;
constexpr uint32_t kFlvPreviousTagSize = 4;

// The 11 bytes ahead of a tag's data.
void WriteFlvTagHeader(ByteCursor& out, FlvTagType type, uint32_t data_size, uint32_t time);

// The value of the PreviousTagSize field behind a tag.
constexpr uint32_t FlvTagSize(uint32_t data_size) {
    return kFlvTagHeaderSize + data_size;
}

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
