// The extension records of a unit.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ovx_reader/unit.h"

namespace Orvane::OvxReader {

enum RecordTag : uint8_t {
    kImageSize = 0x80,
    kPlayBack = 0x81,
    kLongImageSize = 0x82,
    kAudioFormat = 0x83,
    kDataCheck = 0x88,
    kRotationInfo = 0x8B,
    kAudioFormat2 = 0x8C,
    kCompanyType = 0x92,
    kSvcHead = 0x94,
    kEncrypt = 0x95,
    kMultiChannel = 0x96,
    kSplitInfo = 0x99,
};

struct Record {
    uint8_t tag;
    ByteSpan bytes;  // with the tag

    // As the format calls it; empty for a tag that it does not have.
    std::string_view Name() const;
    // Are the bytes that the format fixes what they must be?
    bool WellFormed() const;
    // The values in words, such as "1920x1080 progressive".
    std::string Describe() const;
};

// Takes the first record off the block. Nothing if its tag is unknown, so that its length is too, or if it is cut.
std::optional<Record> TakeRecord(ByteSpan& block);

// What a reader needs of the records of one block.
class Extension {
  public:
    Extension() = default;
    explicit Extension(ByteSpan block);

    ByteSpan Block() const { return block_; }
    // Do records fill the block, each well-formed?
    bool Intact() const { return intact_; }
    // The first record with a tag.
    std::optional<Record> Find(uint8_t tag) const;

  private:
    ByteSpan block_;
    bool intact_ = true;
};

// The codec byte of PlayBack and the codec of AudioFormat, in words and as the suffix of a file.
struct CodecName {
    std::string_view text;
    std::string_view suffix;
};
CodecName VideoCodec(uint8_t codec_byte);
CodecName AudioCodec(uint8_t encode_type);
// Hz, by the index of AudioFormat; 0 where the list has none.
uint32_t SampleRate(uint8_t index);

}  // namespace Orvane::OvxReader
