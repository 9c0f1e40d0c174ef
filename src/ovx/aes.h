#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "ovx/aes_kernels.h"
#include "ovx/encrypt.h"

namespace Orvane::Muxora {

// AES (FIPS-197) with keys of 16, 24 or 32 bytes, each block by itself (ECB, NIST SP 800-38A 6.1).
class CAes : public IEncrypt {
  public:
    static constexpr uint32_t kBlockSize = 16;

    bool isReady() const override { return schedule_ != nullptr; }
    // The key that is set already changes nothing. A length that can be no key at all (0, odd, 64 and more) leaves the
    // old one; any other wrong length takes it away.
    bool setKey(const void* key, uint32_t length) override;
    // Refuses less than one block.
    bool encrypt(const uint8_t* source, uint32_t length, uint8_t* destination, uint32_t* capacity) const override;
    // Less than one block gives 0 bytes.
    bool decrypt(const uint8_t* source, uint32_t length, uint8_t* destination, uint32_t* capacity) const override;

  private:
    std::array<uint8_t, 64> key_{};
    uint32_t key_length_ = 0;
    std::unique_ptr<Kernels::AesSchedule> schedule_;
};

}  // namespace Orvane::Muxora
