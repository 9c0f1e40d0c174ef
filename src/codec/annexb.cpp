#include "codec/annexb.h"

#include <cstring>

#include "codec/start_code.h"
#include "core/byte_writer.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kBadArguments = 0xFFFFFFFF;
constexpr uint32_t kLengthSize = 4;

// A unit runs to the next start code, the last one to the end of the frame.
uint32_t EndOfUnit(const StartCode& next, uint32_t length) {
    return next ? next.position : length;
}

// Copies the unit that begins at `start`. Returns the start code behind it, as NextStartCode gives it.
StartCode CopyUnit(const uint8_t* in, uint32_t inLen, uint32_t start, uint8_t* out) {
    const uint8_t* const end = in + inLen;
    const uint8_t* const hit = CopyToStartCode(out, in + start, end);
    if (hit == end) return {};
    const auto position = static_cast<uint32_t>(hit - in);
    if (position > start && hit[-1] == 0) return {position - 1, 4};
    if (position < inLen - 3) return {position, 3};
    // Three bytes at the end of the frame belong to the unit.
    std::memcpy(out + (position - start), hit, 3);
    return {};
}

}  // namespace

NalUnit FindFirstNal(const uint8_t* in, uint32_t inLen, uint8_t mask, uint8_t value) {
    if (in == nullptr || inLen < 4) return {};
    // A byte must follow the start code. A four-byte start code shows here by its last three bytes.
    const uint8_t* const end = in + (inLen - 1);
    for (const uint8_t* code = FindStartCode(in, end); code != end; code = FindStartCode(code + 3, end)) {
        if ((code[3] & mask) != value) continue;
        const auto start = static_cast<uint32_t>(code + 3 - in);
        return {in + start, EndOfUnit(NextStartCode(in, inLen, start), inLen) - start};
    }
    return {};
}

uint32_t CopyNal(const NalUnit& nal, uint32_t prefix, uint8_t* out, uint32_t outCap) {
    if (nal.data == nullptr || out == nullptr) return 0;
    if (static_cast<uint64_t>(nal.length) + prefix > outCap) return 0;
    if (prefix != 0) PutBE16(out, static_cast<uint16_t>(nal.length));
    std::memcpy(out + prefix, nal.data, nal.length);
    return nal.length + prefix;
}

uint32_t AnnexBToLengthPrefixed(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap) {
    if (out == nullptr || outCap == 0) return kBadArguments;
    uint32_t written = 0;
    StartCode code = NextStartCode(in, inLen, 0);
    while (code) {
        const uint32_t start = code.Payload();
        const uint64_t content = uint64_t{written} + kLengthSize;
        // Where the rest of the frame has room, the unit is copied while its end is sought.
        const bool roomy = content + (inLen - start) <= outCap;
        const StartCode next =
            roomy ? CopyUnit(in, inLen, start, out + content) : NextStartCode(in, inLen, code.position + 3);
        const uint32_t length = EndOfUnit(next, inLen) - start;
        if (!roomy) {
            if (content + length > outCap) break;
            std::memcpy(out + content, in + start, length);
        }
        PutBE32(out + written, length);
        written += kLengthSize + length;
        code = next;
    }
    return written;
}

}  // namespace Orvane::Muxora
