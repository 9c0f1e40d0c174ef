#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "ovx_reader/block_cipher.h"
#include "ovx_reader/records.h"

namespace Orvane::OvxReader {

// Undoes the encryption of frames (AES, each block by itself).
class Decryptor {
  public:
    // Nothing unless the key has 16, 24 or 32 bytes.
    static std::optional<Decryptor> Make(ByteSpan key);

    // The Encrypt record keeps the low 16 bits of the stretch's length. A caller that knows the whole length states it
    // here; it counts for the records that agree with it.
    void SetStretchLength(uint32_t length) { known_length_ = length; }

    // Decrypts what the Encrypt record of the frame's unit names; without such a record nothing changes.
    void Decrypt(const Extension& extension, std::vector<uint8_t>& frame);

  private:
    explicit Decryptor(BlockCipher cipher) : cipher_(std::move(cipher)) {}
    size_t StretchLength(uint16_t recorded) const;

    BlockCipher cipher_;
    std::optional<uint32_t> known_length_;
};

}  // namespace Orvane::OvxReader
