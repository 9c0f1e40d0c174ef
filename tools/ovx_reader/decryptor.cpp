#include "ovx_reader/decryptor.h"

#include <algorithm>
#include <utility>

namespace Orvane::OvxReader {

std::optional<Decryptor> Decryptor::Make(ByteSpan key) {
    std::optional<BlockCipher> cipher = BlockCipher::Make(key);
    if (!cipher) return std::nullopt;
    return Decryptor(std::move(*cipher));
}

void Decryptor::Decrypt(const Extension& extension, std::vector<uint8_t>& frame) {
    const auto record = extension.Find(kEncrypt);
    if (!record) return;
    const size_t offset = Load16(record->bytes.data() + 2);
    if (offset >= frame.size()) return;
    const size_t length = std::min(StretchLength(Load16(record->bytes.data() + 4)), frame.size() - offset);
    uint8_t* at = frame.data() + offset;
    // Whole blocks; what is left behind them is plain.
    for (size_t rest = length / BlockCipher::kBlockSize * BlockCipher::kBlockSize; rest != 0;) {
        const size_t piece = std::min(rest, BlockCipher::kLargestPiece);
        if (!cipher_.Decrypt(at, piece)) return;
        at += piece;
        rest -= piece;
    }
}

size_t Decryptor::StretchLength(uint16_t recorded) const {
    if (known_length_ && (*known_length_ & 0xFFFF) == recorded) return *known_length_;
    // Less than a block is never encrypted, so a higher bit is missing.
    return recorded < BlockCipher::kBlockSize ? size_t{0x10000} + recorded : recorded;
}

}  // namespace Orvane::OvxReader
