#include "common/file_kind.h"

#include <algorithm>
#include <string_view>

namespace Orvane::Muxora::Tools {

namespace {

bool HasAt(std::span<const uint8_t> head, size_t at, std::string_view bytes) {
    return head.size() >= at + bytes.size() &&
           std::equal(bytes.begin(), bytes.end(), head.begin() + static_cast<std::ptrdiff_t>(at),
                      [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; });
}

}  // namespace

FileKind KindOf(std::span<const uint8_t> head) {
    // ISO/IEC 14496-12 4.2: what such files begin with.
    for (const std::string_view box : {"ftyp", "styp", "moov", "moof", "mdat", "wide", "free", "skip"}) {
        if (HasAt(head, 4, box)) return FileKind::kMp4;
    }
    if (HasAt(head, 0, "\x1A\x45\xDF\xA3")) return FileKind::kMatroska;
    if (HasAt(head, 0, "FLV\x01")) return FileKind::kFlv;
    if (HasAt(head, 0, "RIFF") && HasAt(head, 8, "AVI ")) return FileKind::kAvi;
    if (HasAt(head, 0, "RIFF") && HasAt(head, 8, "WAVE")) return FileKind::kWav;
    if (HasAt(head, 0, "\x30\x26\xB2\x75\x8E\x66\xCF\x11")) return FileKind::kAsf;
    constexpr size_t kPacket = 188;
    if (HasAt(head, 0, "G") && HasAt(head, kPacket, "G") && HasAt(head, 2 * kPacket, "G"))
        return FileKind::kTransportStream;
    if (HasAt(head, 0, std::string_view("\0\0\1\xBA", 4))) return FileKind::kProgramStream;
    return FileKind::kUnknown;
}

std::string KindText(FileKind kind) {
    switch (kind) {
        case FileKind::kMp4:
            return "an MP4 or MOV file";
        case FileKind::kMatroska:
            return "a Matroska file";
        case FileKind::kFlv:
            return "an FLV file";
        case FileKind::kAvi:
            return "an AVI file";
        case FileKind::kWav:
            return "a WAV file";
        case FileKind::kAsf:
            return "an ASF file";
        case FileKind::kTransportStream:
            return "an MPEG-2 transport stream";
        case FileKind::kProgramStream:
            return "an MPEG-2 program stream";
        case FileKind::kUnknown:
            break;
    }
    return "a file of another kind";
}

}  // namespace Orvane::Muxora::Tools
