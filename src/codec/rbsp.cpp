#include "codec/rbsp.h"

namespace Orvane::Muxora {

namespace {

// payloadType and payloadSize: bytes of 255 and one below that, added up. Nothing when the bytes end.
std::optional<uint64_t> ReadSeiNumber(std::span<const uint8_t> bytes, size_t& at) {
    uint64_t number = 0;
    while (at < bytes.size()) {
        const uint8_t byte = bytes[at++];
        number += byte;
        if (byte != 0xFF) return number;
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::span<const uint8_t>> FindSeiMessage(std::span<const uint8_t> messages, uint32_t type) {
    size_t at = 0;
    for (;;) {
        const std::optional<uint64_t> found = ReadSeiNumber(messages, at);
        const std::optional<uint64_t> size = ReadSeiNumber(messages, at);
        if (!found || !size || *size > messages.size() - at) return std::nullopt;
        if (*found == type) return messages.subspan(at, static_cast<size_t>(*size));
        at += static_cast<size_t>(*size);
    }
}

}  // namespace Orvane::Muxora
