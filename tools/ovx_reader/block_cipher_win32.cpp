// Must come first: bcrypt.h builds on it.
#include <windows.h>

#include <bcrypt.h>

#include <utility>

#include "ovx_reader/block_cipher.h"

namespace Orvane::OvxReader {

struct BlockCipher::State {
    State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() {
        if (key != nullptr) BCryptDestroyKey(key);
        if (algorithm != nullptr) BCryptCloseAlgorithmProvider(algorithm, 0);
    }

    BCRYPT_ALG_HANDLE algorithm = nullptr;
    BCRYPT_KEY_HANDLE key = nullptr;
};

void BlockCipher::Release::operator()(State* state) const {
    std::default_delete<State>{}(state);
}

namespace {

// The functions take what they only read without const.
UCHAR* Unconst(const void* bytes) {
    return static_cast<UCHAR*>(const_cast<void*>(bytes));
}

}  // namespace

std::optional<BlockCipher> BlockCipher::Make(ByteSpan key) {
    if (key.size() != 16 && key.size() != 24 && key.size() != 32) return std::nullopt;
    static constexpr wchar_t kEcb[] = L"ChainingModeECB";  // BCRYPT_CHAIN_MODE_ECB
    Owner state(std::make_unique<State>().release());
    const bool made = BCryptOpenAlgorithmProvider(&state->algorithm, L"AES", nullptr, 0) >= 0 &&
                      BCryptSetProperty(state->algorithm, L"ChainingMode", Unconst(kEcb), sizeof kEcb, 0) >= 0 &&
                      BCryptGenerateSymmetricKey(state->algorithm, &state->key, nullptr, 0, Unconst(key.data()),
                                                 static_cast<ULONG>(key.size()), 0) >= 0;
    if (!made) return std::nullopt;
    return BlockCipher(std::move(state));
}

bool BlockCipher::Decrypt(uint8_t* bytes, size_t size) {
    const auto length = static_cast<ULONG>(size);
    ULONG written = 0;
    return BCryptDecrypt(state_->key, bytes, length, nullptr, nullptr, 0, bytes, length, &written, 0) >= 0;
}

}  // namespace Orvane::OvxReader
