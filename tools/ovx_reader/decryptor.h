#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "ovx_reader/records.h"

struct evp_cipher_ctx_st;

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
    struct Release {
        void operator()(evp_cipher_ctx_st* context) const;
    };
    using Context = std::unique_ptr<evp_cipher_ctx_st, Release>;

    explicit Decryptor(Context context) : context_(std::move(context)) {}
    size_t StretchLength(uint16_t recorded) const;

    Context context_;
    std::optional<uint32_t> known_length_;
};

}  // namespace Orvane::OvxReader
