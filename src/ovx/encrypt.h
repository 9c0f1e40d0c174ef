#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// A cipher that OVX may put over a stretch of a frame.
class IEncrypt {
  public:
    virtual ~IEncrypt() = default;
    // Is there a key to work with? A cipher that is not ready refuses to encrypt and to decrypt.
    virtual bool isReady() const = 0;
    // Copies the key. False if the cipher has no use for it.
    virtual bool setKey(const void* key, uint32_t length) = 0;
    // Works on whole blocks from the first byte on; what is left behind them is not touched. `source` and `destination`
    // may be the same. In: `*capacity` is the room at `destination`. Out: the number of bytes written.
    virtual bool encrypt(const uint8_t* source, uint32_t length, uint8_t* destination, uint32_t* capacity) const = 0;
    virtual bool decrypt(const uint8_t* source, uint32_t length, uint8_t* destination, uint32_t* capacity) const = 0;
};

}  // namespace Orvane::Muxora
