// The two tables of a transport stream, each a packet of its own.
#pragma once

#include <array>
#include <cstdint>

#include "mpeg2/stream_types.h"
#include "mpeg2/ts_format.h"

namespace Orvane::Muxora {

// A table's packet with a continuity counter of 0. The CRC does not cover the counter, so that copies may count on.
using TsTable = std::array<uint8_t, kTsPacketSize>;

// The program association table (ISO/IEC 13818-1 2.4.4.3): program 1.
TsTable MakePat();

// The program map table (2.4.4.8). kStreamNone leaves a stream out.
TsTable MakePmt(StreamType video, StreamType audio, uint8_t version);

}  // namespace Orvane::Muxora
