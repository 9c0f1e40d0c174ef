#include "codec/crc32.h"

#include <array>

#include "codec/kernels/crc32_kernels.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kMpeg2Polynomial = 0x04C11DB7;

constexpr std::array<uint32_t, 256> MakeMpeg2Table() {
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t remainder = i << 24;
        for (int bit = 0; bit < 8; ++bit)
            remainder = (remainder << 1) ^ ((remainder & 0x80000000) != 0 ? kMpeg2Polynomial : 0);
        table[i] = remainder;
    }
    return table;
}

constexpr std::array<uint32_t, 256> kMpeg2Table = MakeMpeg2Table();

}  // namespace

uint32_t Crc32(const uint8_t* data, uint32_t length) {
    return Crc32Update(0, data, length);
}

uint32_t Crc32Update(uint32_t crc, const uint8_t* data, size_t length) {
    return ~Kernels::crc32_choice.Get().update(~crc, data, length);
}

uint32_t Crc32Copy(uint32_t crc, uint8_t* out, const uint8_t* data, size_t length) {
    return ~Kernels::crc32_choice.Get().copy(~crc, out, data, length);
}

uint32_t Crc32Mpeg2(const uint8_t* data, uint32_t length) {
    uint32_t crc = 0xFFFFFFFF;
    for (uint32_t i = 0; i < length; ++i)
        crc = (crc << 8) ^ kMpeg2Table[(crc >> 24) ^ data[i]];
    return crc;
}

}  // namespace Orvane::Muxora
