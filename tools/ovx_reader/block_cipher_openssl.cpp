#include <openssl/evp.h>

#include <utility>

#include "ovx_reader/block_cipher.h"

namespace Orvane::OvxReader {

struct BlockCipher::State {
    State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { EVP_CIPHER_CTX_free(context); }

    EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
};

void BlockCipher::Release::operator()(State* state) const {
    std::default_delete<State>{}(state);
}

std::optional<BlockCipher> BlockCipher::Make(ByteSpan key) {
    const EVP_CIPHER* const cipher = key.size() == 16   ? EVP_aes_128_ecb()
                                     : key.size() == 24 ? EVP_aes_192_ecb()
                                     : key.size() == 32 ? EVP_aes_256_ecb()
                                                        : nullptr;
    if (cipher == nullptr) return std::nullopt;
    Owner state(std::make_unique<State>().release());
    if (state->context == nullptr || EVP_DecryptInit_ex(state->context, cipher, nullptr, key.data(), nullptr) != 1) {
        return std::nullopt;
    }
    EVP_CIPHER_CTX_set_padding(state->context, 0);
    return BlockCipher(std::move(state));
}

bool BlockCipher::Decrypt(uint8_t* bytes, size_t size) {
    int written = 0;
    return EVP_DecryptUpdate(state_->context, bytes, &written, bytes, static_cast<int>(size)) == 1;
}

}  // namespace Orvane::OvxReader
