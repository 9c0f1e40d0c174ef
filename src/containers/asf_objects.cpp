#include "containers/asf_objects.h"

#include <array>

#include "MuxoraAPI.h"
#include "containers/wave_audio.h"

namespace Orvane::Muxora {

namespace {

using Guid = std::array<uint8_t, 16>;

constexpr uint8_t HexDigit(char digit) {
    return static_cast<uint8_t>(digit >= 'A' ? digit - 'A' + 10 : digit - '0');
}

// The bytes of a GUID from its text: the first three groups go least significant byte first.
consteval Guid ParseGuid(const char (&text)[37]) {
    constexpr uint8_t kPlaces[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
    Guid guid{};
    uint32_t byte = 0;
    for (uint32_t i = 0; i < 36;) {
        if (text[i] == '-') {
            ++i;
            continue;
        }
        guid[kPlaces[byte++]] = static_cast<uint8_t>(HexDigit(text[i]) << 4 | HexDigit(text[i + 1]));
        i += 2;
    }
    return guid;
}

constexpr Guid kHeaderObject = ParseGuid("75B22630-668E-11CF-A6D9-00AA0062CE6C");
constexpr Guid kDataObject = ParseGuid("75B22636-668E-11CF-A6D9-00AA0062CE6C");
constexpr Guid kSimpleIndexObject = ParseGuid("33000890-E5B1-11CF-89F4-00A0C90349CB");
constexpr Guid kFilePropertiesObject = ParseGuid("8CABDCA1-A947-11CF-8EE4-00C00C205365");
constexpr Guid kStreamPropertiesObject = ParseGuid("B7DC0791-A9B7-11CF-8EE6-00C00C205365");
constexpr Guid kHeaderExtensionObject = ParseGuid("5FBF03B5-A92E-11CF-8EE3-00C00C205365");
constexpr Guid kExtendedStreamPropertiesObject = ParseGuid("14E6A5CB-C672-4332-8399-A96952065B5A");
constexpr Guid kLanguageListObject = ParseGuid("7C4346A9-EFE0-4BFC-B229-393EDE415C85");
constexpr Guid kPaddingObject = ParseGuid("1806D474-CADF-4509-A4BA-9AABCB96AAE8");
constexpr Guid kReserved1 = ParseGuid("ABD3D211-A9BA-11CF-8EE6-00C00C205365");
constexpr Guid kVideoMedia = ParseGuid("BC19EFC0-5B4D-11CF-A8FD-00805F5C442B");
constexpr Guid kAudioMedia = ParseGuid("F8699E40-5B4D-11CF-A8FD-00805F5C442B");
constexpr Guid kNoErrorCorrection = ParseGuid("20FB5700-5B55-11CF-A8FD-00805F5C442B");
constexpr Guid kAudioSpread = ParseGuid("BFC3CD50-618F-11CF-8BB2-00AA00B4E220");
// Readers rely on this: every file has the same File ID.
constexpr Guid kFileId = ParseGuid("DF608C92-71EA-43FE-8104-2251D394F39D");

constexpr uint32_t kObjectHeadSize = 24;  // GUID and size
constexpr uint32_t kHeaderObjectHeadSize = 30;
constexpr uint32_t kFilePropertiesSize = 104;
constexpr uint32_t kHeaderExtensionHeadSize = 46;
constexpr uint32_t kLanguageListSize = 39;
constexpr uint32_t kExtendedStreamPropertiesSize = 88;
constexpr uint32_t kStreamPropertiesHeadSize = 78;
constexpr uint32_t kBitmapInfoHeaderSize = 40;
constexpr uint32_t kVideoTypeDataSize = 11 + kBitmapInfoHeaderSize;  // without the configuration
constexpr uint32_t kAudioTypeDataSize = 30;
constexpr uint32_t kAudioSpreadSize = 8;

constexpr uint32_t kMinHeaderObjects = 2;
constexpr uint32_t kFlagSeekable = 2;
constexpr uint32_t kFlagSeekableBroadcast = 3;
// Readers rely on this: a constant, whatever the streams take.
constexpr uint32_t kMaximumBitrate = 1511712;
constexpr uint16_t kVideoStreamNumber = 1;
constexpr uint16_t kAudioStreamNumber = 2;
constexpr uint32_t kTimeUnitsPerSecond = 10000000;  // 100 ns each
// "zh-cn" in UTF-16LE with its end.
constexpr uint8_t kLanguage[] = {'z', 0, 'h', 0, '-', 0, 'c', 0, 'n', 0, 0, 0};

constexpr uint16_t kConfigSize = 2;
constexpr uint32_t kExtraSize = 12;

constexpr uint16_t kDataReserved = 257;
constexpr uint32_t kMaximumPacketCount = 41960;

constexpr uint8_t kErrorCorrectionPresent = 0x82;  // two bytes of opaque data
constexpr uint8_t kLengthTypeFlags = 0x90;         // 16-bit padding length
constexpr uint8_t kPropertyFlags = 0x5D;           // 8-bit object number, 32-bit offset, 8-bit replicated data length
constexpr uint8_t kReplicatedDataLength = 8;

// The padding has room for both streams and the largest configuration.
static_assert(kHeaderObjectHeadSize + kFilePropertiesSize + kHeaderExtensionHeadSize + kLanguageListSize +
                  kExtendedStreamPropertiesSize + kObjectHeadSize + kStreamPropertiesHeadSize + kVideoTypeDataSize +
                  kAsfMaxVideoConfig + kStreamPropertiesHeadSize + kAudioTypeDataSize + kAudioSpreadSize <=
              kAsfHeaderSize);

ByteCursor& ObjectHead(ByteCursor& out, const Guid& guid, uint64_t size) {
    return out.Guid(guid.data()).LE64(size);
}

void WriteLanguageList(ByteCursor& out) {
    ObjectHead(out, kLanguageListObject, kLanguageListSize)
        .LE16(1)                              // Language ID Records Count
        .U8(sizeof kLanguage)                 // Language ID Length
        .Bytes(kLanguage, sizeof kLanguage);  // Language ID
}

void WriteCompressionId(ByteCursor& out, uint32_t encode_type) {
    switch (encode_type) {
        case MX_VIDEO_MPEG4:
            out.Text("M4S2");
            break;
        case MX_VIDEO_MJPEG:
            out.Text("MJPG");
            break;
        default:
            out.Text("H264");
    }
}

}  // namespace

void AsfHeader::Write(ByteCursor& out) const {
    const uint32_t streams = audio ? 2 : 1;
    ObjectHead(out, kHeaderObject, kAsfHeaderSize)
        .LE32(kMinHeaderObjects + streams)  // Number of Header Objects
        .U8(1)                              // Reserved1
        .U8(2);                             // Reserved2
    WriteFileProperties(out);
    WriteHeaderExtension(out);
    WriteVideoStreamProperties(out);
    if (audio) WriteAudioStreamProperties(out);
    WriteDataHead(out);
}

void AsfHeader::WriteFileProperties(ByteCursor& out) const {
    // Readers rely on this: a broadcast has 1 in each field that only the end would tell.
    ObjectHead(out, kFilePropertiesObject, kFilePropertiesSize)
        .Guid(kFileId.data())             // File ID
        .LE64(broadcast ? 1 : file_size)  // File Size
        // Readers rely on this: seconds since 1970 and not units of 100 ns since 1601.
        .LE64(broadcast ? 1 : creation_date)                       // Creation Date
        .LE64(broadcast ? 1 : packets)                             // Data Packets Count
        .LE64(broadcast ? 1 : play_duration)                       // Play Duration
        .LE64(broadcast ? 1 : play_duration)                       // Send Duration
        .LE64(0)                                                   // Preroll
        .LE32(broadcast ? kFlagSeekableBroadcast : kFlagSeekable)  // Flags
        .LE32(kAsfPacketSize)                                      // Minimum Data Packet Size
        .LE32(kAsfPacketSize)                                      // Maximum Data Packet Size
        .LE32(kMaximumBitrate);                                    // Maximum Bitrate
}

// Language list and stream properties, and as much padding as keeps the whole header at its size.
void AsfHeader::WriteHeaderExtension(ByteCursor& out) const {
    const uint32_t size =
        kAsfHeaderSize - kHeaderObjectHeadSize - kFilePropertiesSize - VideoStreamSize() - AudioStreamSize();
    const uint32_t padding = size - kHeaderExtensionHeadSize - kLanguageListSize - kExtendedStreamPropertiesSize;
    ObjectHead(out, kHeaderExtensionObject, size)
        .Guid(kReserved1.data())                 // Reserved Field 1
        .LE16(6)                                 // Reserved Field 2
        .LE32(size - kHeaderExtensionHeadSize);  // Header Extension Data Size
    WriteLanguageList(out);
    WriteExtendedStreamProperties(out);
    ObjectHead(out, kPaddingObject, padding).Zeros(padding - kObjectHeadSize);
}

void AsfHeader::WriteExtendedStreamProperties(ByteCursor& out) const {
    const uint64_t frame_time = video.frame_rate != 0 ? kTimeUnitsPerSecond / video.frame_rate : 0;
    ObjectHead(out, kExtendedStreamPropertiesObject, kExtendedStreamPropertiesSize)
        .LE64(0)                   // Start Time
        .LE64(0)                   // End Time
        .LE32(0)                   // Data Bitrate
        .LE32(0)                   // Buffer Size
        .LE32(0)                   // Initial Buffer Fullness
        .LE32(0)                   // Alternate Data Bitrate
        .LE32(0)                   // Alternate Buffer Size
        .LE32(0)                   // Alternate Initial Buffer Fullness
        .LE32(0)                   // Maximum Object Size
        .LE32(kFlagSeekable)       // Flags
        .LE16(kVideoStreamNumber)  // Stream Number
        .LE16(0)                   // Stream Language ID Index
        .LE64(frame_time)          // Average Time Per Frame
        .LE16(0)                   // Stream Name Count
        .LE16(0);                  // Payload Extension System Count
}

void AsfHeader::WriteVideoStreamProperties(ByteCursor& out) const {
    const uint32_t format_size = kBitmapInfoHeaderSize + video.config_size;
    ObjectHead(out, kStreamPropertiesObject, VideoStreamSize())
        .Guid(kVideoMedia.data())                      // Stream Type
        .Guid(kNoErrorCorrection.data())               // Error Correction Type
        .LE64(0)                                       // Time Offset
        .LE32(kVideoTypeDataSize + video.config_size)  // Type-Specific Data Length
        .LE32(0)                                       // Error Correction Data Length
        .LE16(kVideoStreamNumber)                      // Flags
        .LE32(0)                                       // Reserved
        .LE32(video.width)                             // Encoded Image Width
        .LE32(video.height)                            // Encoded Image Height
        .U8(2)                                         // Reserved Flags
        .LE16(static_cast<uint16_t>(format_size))      // Format Data Size
        .LE32(format_size)                             // Format Data Size (biSize)
        .LE32(video.width)                             // Image Width
        .LE32(video.height)                            // Image Height
        .LE16(1)                                       // Reserved
        .LE16(24);                                     // Bits Per Pixel Count
    WriteCompressionId(out, video.encode_type);        // Compression ID
    out.LE32(0)                                        // Image Size
        .LE32(0)                                       // Horizontal Pixels Per Meter
        .LE32(0)                                       // Vertical Pixels Per Meter
        .LE32(0)                                       // Colors Used Count
        .LE32(0)                                       // Important Colors Count
        .Bytes(video.config, video.config_size);       // Codec Specific Data
}

void AsfHeader::WriteAudioStreamProperties(ByteCursor& out) const {
    const uint32_t byte_rate = audio->channels * audio->samples_per_sec * audio->bits_per_sample / 8;
    const uint16_t block_align = WaveBlockAlign(audio->tag, audio->channels, audio->bits_per_sample);
    ObjectHead(out, kStreamPropertiesObject, AudioStreamSize())
        .Guid(kAudioMedia.data())                             // Stream Type
        .Guid(kAudioSpread.data())                            // Error Correction Type
        .LE64(0)                                              // Time Offset
        .LE32(kAudioTypeDataSize)                             // Type-Specific Data Length
        .LE32(kAudioSpreadSize)                               // Error Correction Data Length
        .LE16(kAudioStreamNumber)                             // Flags
        .LE32(0)                                              // Reserved
        .LE16(audio->tag)                                     // wFormatTag
        .LE16(static_cast<uint16_t>(audio->channels))         // nChannels
        .LE32(audio->samples_per_sec)                         // nSamplesPerSec
        .LE32(byte_rate)                                      // nAvgBytesPerSec
        .LE16(block_align)                                    // nBlockAlign
        .LE16(static_cast<uint16_t>(audio->bits_per_sample))  // wBitsPerSample
        // Readers rely on this: the size says 2, and 12 bytes follow.
        .LE16(kConfigSize)                   // cbSize
        .BE16(audio->audio_specific_config)  // AudioSpecificConfig
        .Zeros(kExtraSize - kConfigSize)
        .U8(1)                    // Span
        .LE16(kAsfPacketPayload)  // Virtual Packet Length
        .LE16(kAsfPacketPayload)  // Virtual Chunk Length
        .LE16(1)                  // Silence Data Length
        .U8(0);                   // Silence Data
}

void AsfHeader::WriteDataHead(ByteCursor& out) const {
    ObjectHead(out, kDataObject, kAsfDataHeadSize + packets * kAsfPacketSize)
        .Guid(kFileId.data())  // File ID
        .LE64(packets)         // Total Data Packets
        .LE16(kDataReserved);  // Reserved
}

uint32_t AsfHeader::VideoStreamSize() const {
    return kStreamPropertiesHeadSize + kVideoTypeDataSize + video.config_size;
}

uint32_t AsfHeader::AudioStreamSize() const {
    return audio ? kStreamPropertiesHeadSize + kAudioTypeDataSize + kAudioSpreadSize : 0;
}

AsfPacketHead::AsfPacketHead(const AsfMediaObject& object) {
    ByteCursor(bytes_)
        .U8(kErrorCorrectionPresent)      // Error Correction Flags
        .LE16(0)                          // Error Correction Data
        .U8(kLengthTypeFlags)             // Length Type Flags
        .U8(kPropertyFlags)               // Property Flags
        .LE16(0)                          // Padding Length, of each packet
        .LE32(object.send_time)           // Send Time
        .LE16(0)                          // Duration
        .U8(object.stream_number)         // Stream Number
        .U8(object.number)                // Media Object Number
        .LE32(0)                          // Offset Into Media Object, of each packet
        .U8(kReplicatedDataLength)        // Replicated Data Length
        .LE32(object.size)                // Media Object Size
        .LE32(object.presentation_time);  // Presentation Time
}

void WriteAsfIndexHead(ByteCursor& out, uint32_t entries) {
    ObjectHead(out, kSimpleIndexObject, kAsfIndexHeadSize + uint64_t{entries} * kAsfIndexEntrySize)
        .Guid(kFileId.data())       // File ID
        .LE64(kTimeUnitsPerSecond)  // Index Entry Time Interval
        // Readers rely on this: a constant, whatever the entries say.
        .LE32(kMaximumPacketCount)  // Maximum Packet Count
        .LE32(entries);             // Index Entries Count
}

}  // namespace Orvane::Muxora
