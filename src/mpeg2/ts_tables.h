// The two tables of a transport stream.
#pragma once

#include <cstdint>

#include "codec/psi_tables.h"
#include "mpeg2/stream_types.h"
#include "mpeg2/ts_format.h"

namespace Orvane::Muxora {

inline TsTable MakePat() {
    return MakePat(kPmtPid);
}

// kStreamNone leaves a stream out.
TsTable MakePmt(StreamType video, StreamType audio, uint8_t version);

}  // namespace Orvane::Muxora
