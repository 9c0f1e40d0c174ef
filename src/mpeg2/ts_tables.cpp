#include "mpeg2/ts_tables.h"

#include <cstddef>

namespace Orvane::Muxora {

TsTable MakePmt(StreamType video, StreamType audio, uint8_t version) {
    PsiStream streams[2];
    size_t count = 0;
    if (video != kStreamNone) streams[count++] = {video, kVideoPid};
    if (audio != kStreamNone) streams[count++] = {audio, kAudioPid};
    const uint16_t pcr_pid = count != 0 ? streams[0].pid : kNoPid;
    return MakePmt(kPmtPid, pcr_pid, {streams, count}, version);
}

}  // namespace Orvane::Muxora
