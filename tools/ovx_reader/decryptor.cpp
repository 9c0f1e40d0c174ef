#include "ovx_reader/decryptor.h"

#include <openssl/evp.h>

#include <algorithm>
#include <climits>
#include <utility>

namespace Orvane::OvxReader {

namespace {

constexpr size_t kBlockSize = 16;

}  // namespace

void Decryptor::Release::operator()(evp_cipher_ctx_st* context) const {
    EVP_CIPHER_CTX_free(context);
}

std::optional<Decryptor> Decryptor::Make(ByteSpan key) {
    const EVP_CIPHER* const cipher = key.size() == 16   ? EVP_aes_128_ecb()
                                     : key.size() == 24 ? EVP_aes_192_ecb()
                                     : key.size() == 32 ? EVP_aes_256_ecb()
                                                        : nullptr;
    if (cipher == nullptr) return std::nullopt;
    Context context(EVP_CIPHER_CTX_new());
    if (context == nullptr || EVP_DecryptInit_ex(context.get(), cipher, nullptr, key.data(), nullptr) != 1) {
        return std::nullopt;
    }
    EVP_CIPHER_CTX_set_padding(context.get(), 0);
    return Decryptor(std::move(context));
}

void Decryptor::Decrypt(const Extension& extension, std::vector<uint8_t>& frame) {
    const auto record = extension.Find(kEncrypt);
    if (!record) return;
    const size_t offset = Load16(record->bytes.data() + 2);
    if (offset >= frame.size()) return;
    const size_t length = std::min(StretchLength(Load16(record->bytes.data() + 4)), frame.size() - offset);
    uint8_t* at = frame.data() + offset;
    // Whole blocks; what is left behind them is plain. libcrypto counts in int.
    for (size_t rest = length / kBlockSize * kBlockSize; rest != 0;) {
        const size_t piece = std::min<size_t>(rest, INT_MAX / kBlockSize * kBlockSize);
        int written = 0;
        if (EVP_DecryptUpdate(context_.get(), at, &written, at, static_cast<int>(piece)) != 1) return;
        at += piece;
        rest -= piece;
    }
}

size_t Decryptor::StretchLength(uint16_t recorded) const {
    if (known_length_ && (*known_length_ & 0xFFFF) == recorded) return *known_length_;
    // Less than a block is never encrypted, so a higher bit is missing.
    return recorded < kBlockSize ? size_t{0x10000} + recorded : recorded;
}

}  // namespace Orvane::OvxReader
