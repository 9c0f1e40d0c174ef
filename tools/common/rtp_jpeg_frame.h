// Motion JPEG frames as RFC 2435 carries them.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace Orvane::Muxora::Tools {

// The payload carries the scan and two quantisation tables and nothing else of the headers, so that a frame needs a
// form: baseline, 4:2:0, the Huffman tables of ISO/IEC 10918-1 annex K, no restart intervals, and one DQT segment with
// the table of the luma first and that of the chroma second. Gives the frame in this form; no coefficient changes.
// Throws Failure for what the payload cannot carry.
std::vector<uint8_t> JpegForRtp(std::span<const uint8_t> frame);

}  // namespace Orvane::Muxora::Tools
