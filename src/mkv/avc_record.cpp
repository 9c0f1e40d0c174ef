#include "mkv/avc_record.h"

#include <cstring>

#include "codec/start_code.h"
#include "core/byte_writer.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kLengthSize = 4;  // of a start code and of the length that takes its place
constexpr uint8_t kNalTypeMask = 0x1F;
constexpr uint8_t kNalSps = 7;
constexpr uint8_t kNalPps = 8;
constexpr uint8_t kConfigurationVersion = 1;
constexpr uint8_t kLengthSizeMinusOne = 0xFF;  // six reserved bits, then 3: lengths of four bytes
constexpr uint8_t kSpsCountMarker = 0xE0;      // three reserved bits

}  // namespace

void CAvcRecord::ScanAvcFrame(uint8_t* frame, uint32_t length, uint8_t* copy) {
    const uint8_t* const end = frame + length;
    const auto copy_of = [&](const uint8_t* at) { return copy + (at - frame); };
    // The copy is made while the start code is sought.
    const auto next_code = [&](const uint8_t* from) {
        return copy != nullptr ? CopyToLongStartCode(copy_of(from), from, end) : FindLongStartCode(from, end);
    };
    uint8_t* span = frame;
    const uint8_t* start_code = next_code(frame);
    while (start_code != end) {
        const uint8_t* const nal = start_code + kLengthSize;
        // The first one stays if there is something ahead of it.
        if (copy != nullptr) std::memcpy(copy_of(start_code), start_code, kLengthSize);
        start_code = next_code(nal);
        const auto nal_length = static_cast<uint32_t>(start_code - nal);
        PutBE32(span, nal_length);
        if (copy != nullptr) PutBE32(copy_of(span), nal_length);
        Keep(nal, nal_length);
        span = frame + (start_code - frame);
    }
}

void CAvcRecord::Keep(const uint8_t* nal, uint32_t length) {
    if (length == 0 || length > kMaxParameterSet) return;
    const uint8_t type = nal[0] & kNalTypeMask;
    if (type != kNalSps && type != kNalPps) return;
    (type == kNalSps ? sps_ : pps_).Set(nal, length);
    if (sps_.count != 0 || sps_.length == 0 || pps_.length == 0) return;
    // From here on only the parameter sets themselves are replaced: the profile stays that of the first pair.
    sps_.count = 1;
    pps_.count = 1;
    version_ = kConfigurationVersion;
    std::memcpy(profile_, sps_.bytes + 1, sizeof profile_);
}

void CAvcRecord::ParameterSet::Set(const uint8_t* nal, uint32_t nal_length) {
    length = static_cast<uint8_t>(nal_length);
    std::memcpy(bytes, nal, nal_length);
}

uint32_t CAvcRecord::WriteConfiguration(uint8_t (&area)[kMaxConfiguration]) const {
    ByteCursor out(area);
    out.U8(version_)
        .Bytes(profile_, sizeof profile_)
        .U8(kLengthSizeMinusOne)
        .U8(sps_.count | kSpsCountMarker)
        .BE16(sps_.length)
        .Bytes(sps_.bytes, sps_.length)
        .U8(pps_.count)
        .BE16(pps_.length)
        .Bytes(pps_.bytes, pps_.length);
    return out.Size();
}

}  // namespace Orvane::Muxora
