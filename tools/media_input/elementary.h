// Small steps from what a file holds to what the library takes: ADTS headers, PCM samples.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "media_input/nal_units.h"

namespace Orvane::Muxora::Tools {

// What an ADTS header says of the stream.
struct AdtsConfig {
    uint8_t object_type = 2;  // audio object type, 1 to 4
    uint8_t rate_index = 4;
    uint8_t channel_config = 2;
    bool extended = false;  // HE-AAC, said so in an AudioSpecificConfig

    uint32_t Rate() const;
    // ISO/IEC 13818-7 6.2: MPEG-4, no CRC, one raw data block.
    std::array<uint8_t, 7> Header(size_t payload_size) const;
};

// Reads an AudioSpecificConfig (ISO/IEC 14496-3 1.6.2.1). What ADTS cannot say gives nothing, and the reason in `why`.
std::optional<AdtsConfig> AdtsFromSpecificConfig(ByteSpan config, std::string& why);

// A frame that has an ADTS header already: the payload behind it, and the header's words in `config`.
std::optional<ByteSpan> AdtsPayload(ByteSpan frame, AdtsConfig& config);

// Sample forms that become 16-bit little-endian PCM.
enum class PcmForm { kS16Le, kS16Be, kS24Le, kS32Le, kF32Le };
size_t BytesPerSample(PcmForm form);
void AppendAsS16Le(PcmForm form, ByteSpan samples, std::vector<uint8_t>& out);

}  // namespace Orvane::Muxora::Tools
