// The two tables of a transport stream with one program, each a packet of its own (ISO/IEC 13818-1 2.4.4).
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "codec/ts_format.h"

namespace Orvane::Muxora {

// A table's packet with a continuity counter of 0. The CRC does not cover the counter, so that copies may count on.
using TsTable = std::array<uint8_t, kTsPacketSize>;

// A line of the program map: what the stream is (stream_type, Table 2-34), and where.
struct PsiStream {
    uint8_t stream_type;
    uint16_t pid;
};

// The program association table (2.4.4.3): program 1.
TsTable MakePat(uint16_t pmt_pid);

// The program map table (2.4.4.8), without descriptors: at most eight streams.
TsTable MakePmt(uint16_t pmt_pid, uint16_t pcr_pid, std::span<const PsiStream> streams, uint8_t version);

// Writes the next copy of a table, and counts.
void CopyTable(const TsTable& table, uint8_t& continuity, uint8_t* out);

}  // namespace Orvane::Muxora
