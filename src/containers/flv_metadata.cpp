#include "containers/flv_metadata.h"

namespace Orvane::Muxora {

namespace {

// AMF0 type markers (Action Message Format 0, 2.1).
constexpr uint8_t kAmfNumber = 0;
constexpr uint8_t kAmfBoolean = 1;
constexpr uint8_t kAmfString = 2;
constexpr uint8_t kAmfEcmaArray = 8;
constexpr uint32_t kAmfObjectEnd = 9;

constexpr uint32_t kMetadataBodySize = FlvMetadata::kTagSize - kFlvTagHeaderSize - kFlvPreviousTagSize;

// Readers rely on this: the array announces 13 properties, and twelve values follow.
constexpr uint32_t kArrayCount = 13;

template <uint32_t N>
ByteCursor& Key(ByteCursor& out, const char (&name)[N]) {
    return out.BE16(N - 1).Text(name);
}

void NumberValue(ByteCursor& out, double value) {
    out.U8(kAmfNumber).BEDouble(value);
}

template <uint32_t N>
void Number(ByteCursor& out, const char (&name)[N], double value) {
    Key(out, name);
    NumberValue(out, value);
}

template <uint32_t N>
void Boolean(ByteCursor& out, const char (&name)[N], bool value) {
    Key(out, name).U8(kAmfBoolean).U8(value ? 1 : 0);
}

}  // namespace

void WriteFlvTagHeader(ByteCursor& out, FlvTagType type, uint32_t data_size, uint32_t time) {
    out.U8(static_cast<uint8_t>(type))  // TagType
        .BE24(data_size)                // DataSize
        // Readers rely on this: the time starts again from 0 past 24 bits, its extension is never used.
        .BE24(time & 0xFFFFFF)  // Timestamp
        .U8(0)                  // TimestampExtended
        .BE24(0);               // StreamID
}

void FlvMetadata::WriteTag(ByteCursor& out) const {
    WriteFlvTagHeader(out, FlvTagType::Script, kMetadataBodySize, 0);
    Key(out.U8(kAmfString), "onMetaData");
    out.U8(kAmfEcmaArray).BE32(kArrayCount);
    Number(out, "duration", duration);
    Number(out, "width", width);
    Number(out, "height", height);
    Number(out, "videodatarate", videodatarate);
    Number(out, "framerate", framerate);
    Number(out, "videocodecid", videocodecid);
    Number(out, "audiodatarate", audiodatarate);
    Number(out, "audiosamplerate", audiosamplerate);
    // Readers rely on this: the value stands without its key, "audiosamplesize".
    NumberValue(out, audiosamplesize);
    Boolean(out, "stereo", stereo);
    Number(out, "audiocodecid", audiocodecid);
    Number(out, "filesize", filesize);
    out.BE24(kAmfObjectEnd);
    out.BE32(FlvTagSize(kMetadataBodySize));  // PreviousTagSize
}

}  // namespace Orvane::Muxora
