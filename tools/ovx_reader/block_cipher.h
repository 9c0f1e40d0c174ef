#pragma once

#include <memory>
#include <optional>

#include "ovx_reader/unit.h"

namespace Orvane::OvxReader {

// AES, each block by itself (FIPS-197; ECB of NIST SP 800-38A). It is the system's own on Windows and libcrypto's
// elsewhere: block_cipher_win32.cpp, block_cipher_openssl.cpp.
class BlockCipher {
  public:
    static constexpr size_t kBlockSize = 16;

    // Nothing unless the key has 16, 24 or 32 bytes.
    static std::optional<BlockCipher> Make(ByteSpan key);

    // Decrypts `size` bytes in place: whole blocks, at most kLargestPiece.
    bool Decrypt(uint8_t* bytes, size_t size);
    static constexpr size_t kLargestPiece = size_t{1} << 30;

  private:
    struct State;
    struct Release {
        void operator()(State* state) const;
    };
    using Owner = std::unique_ptr<State, Release>;

    explicit BlockCipher(Owner state) : state_(std::move(state)) {}

    Owner state_;
};

}  // namespace Orvane::OvxReader
