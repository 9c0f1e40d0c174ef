// EBML (RFC 8794): element IDs of Matroska (RFC 9559), the two codings of an element's size, and the head of an
// element. All numbers are big-endian.
#pragma once

#include <cstdint>

#include "core/byte_writer.h"

namespace Orvane::Muxora {

// IDs with their length marker, as they stand in the file.
enum class ElementId : uint32_t {
    kEbml = 0x1A45DFA3,
    kEbmlVersion = 0x4286,
    kEbmlReadVersion = 0x42F7,
    kEbmlMaxIdLength = 0x42F2,
    kEbmlMaxSizeLength = 0x42F3,
    kDocType = 0x4282,
    kDocTypeVersion = 0x4287,
    kDocTypeReadVersion = 0x4285,
    kVoid = 0xEC,

    kSegment = 0x18538067,
    kSeekHead = 0x114D9B74,
    kSeek = 0x4DBB,
    kSeekId = 0x53AB,
    kSeekPosition = 0x53AC,

    kInfo = 0x1549A966,
    kTimecodeScale = 0x2AD7B1,
    kDuration = 0x4489,
    kDateUtc = 0x4461,
    kMuxingApp = 0x4D80,
    kWritingApp = 0x5741,

    kTracks = 0x1654AE6B,
    kTrackEntry = 0xAE,
    kTrackNumber = 0xD7,
    kTrackUid = 0x73C5,
    kFlagLacing = 0x9C,
    kTrackType = 0x83,
    kCodecId = 0x86,
    kCodecDelay = 0x56AA,
    kDefaultDuration = 0x23E383,
    kLanguage = 0x22B59C,
    kCodecPrivate = 0x63A2,
    kVideo = 0xE0,
    kPixelWidth = 0xB0,
    kPixelHeight = 0xBA,
    kDisplayWidth = 0x54B0,
    kDisplayHeight = 0x54BA,
    kColour = 0x55B0,
    kMatrixCoefficients = 0x55B1,
    kRange = 0x55B9,
    kTransferCharacteristics = 0x55BA,
    kPrimaries = 0x55BB,
    kProjection = 0x7670,
    kProjectionType = 0x7671,
    kProjectionPoseYaw = 0x7673,
    kProjectionPosePitch = 0x7674,
    kProjectionPoseRoll = 0x7675,
    kAudio = 0xE1,
    kSamplingFrequency = 0xB5,
    kChannels = 0x9F,
    kBitDepth = 0x6264,

    kCluster = 0x1F43B675,
    kTimecode = 0xE7,
    kSimpleBlock = 0xA3,
    kBlockGroup = 0xA0,
    kBlock = 0xA1,
    kBlockDuration = 0x9B,
    kReferenceBlock = 0xFB,

    kCues = 0x1C53BB6B,
    kCuePoint = 0xBB,
    kCueTime = 0xB3,
    kCueTrackPositions = 0xB7,
    kCueTrack = 0xF7,
    kCueClusterPosition = 0xF1,
    kCueRelativePosition = 0xF0,
};

// The bytes of a size in its short form, and their number: 0 for a value that has no code. The bytes are the calling
// thread's and good until its next call.
const uint8_t* EbmlCodeSize(uint64_t value, uint32_t* length);

// Number of bytes that EbmlCodeSize gives.
uint32_t EbmlCodeLength(uint64_t value);

// The number whose 8 big-endian bytes are a size in its 8-byte form, which every master element has.
constexpr uint64_t EbmlSize8(uint64_t value) {
    return value | uint64_t{0x01} << 56;
}

// Write the head of an element whose value follows: the ID and the size, in the short form or in the 8-byte form.
ByteCursor& PutElement(ByteCursor& out, ElementId id, uint64_t size);
ByteCursor& PutMaster(ByteCursor& out, ElementId id, uint64_t size);

}  // namespace Orvane::Muxora
