#include "ovx_reader/data_check.h"

#include <zlib.h>

namespace Orvane::OvxReader {

Check CheckData(const Extension& extension, ByteSpan frame) {
    const auto record = extension.Find(kDataCheck);
    if (!record) return Check::kMissing;
    const uint32_t value = Load32(record->bytes.data() + 1);
    switch (record->bytes[7]) {
        case 0:
            return value == SumOfWords(frame) ? Check::kRight : Check::kWrong;
        case 1:
            return value == XorOfBytes(frame) ? Check::kRight : Check::kWrong;
        case 2:
            return value == Crc32OfBytes(frame) ? Check::kRight : Check::kWrong;
        default:
            return Check::kWrong;
    }
}

uint32_t SumOfWords(ByteSpan bytes) {
    uint32_t sum = 0;
    for (size_t i = 0; i < bytes.size(); ++i)
        sum += static_cast<uint32_t>(bytes[i]) << (8 * (i % 4));
    return sum;
}

uint32_t XorOfBytes(ByteSpan bytes) {
    if (bytes.size() < 2) return 0;
    uint8_t value = 0;
    for (const uint8_t byte : bytes)
        value ^= byte;
    return value;
}

uint32_t Crc32OfBytes(ByteSpan bytes) {
    return static_cast<uint32_t>(crc32_z(0, bytes.data(), bytes.size()));
}

}  // namespace Orvane::OvxReader
