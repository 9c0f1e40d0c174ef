// The gateway's RTSP reader: whatever comes, in pieces of any size, is taken apart within its bounds.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "bounds.h"
#include "protocols/rtsp.h"

using namespace Orvane::Muxora::Gateway;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t step = 1 + data[0];
    std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    RtspReader reader;
    while (!rest.empty()) {
        reader.Put(rest.substr(0, step));
        rest.remove_prefix(std::min(step, rest.size()));
        for (;;) {
            const RtspReader::Result result = reader.Next();
            if (result == RtspReader::Result::kMore) break;
            if (result == RtspReader::Result::kBad) return 0;
            if (result == RtspReader::Result::kFrame) continue;
            const RtspRequest& request = reader.Request();
            if (request.body.size() > kMaxBodyBytes || request.uri.size() > kMaxTargetBytes) std::abort();
            if (const auto address = ParseRtspAddress(request.uri);
                address && address->stream.size() > kMaxTargetBytes) {
                std::abort();
            }
            const auto transport = ParseRtspTransport(request.Field("transport"));
            if (transport && transport->interleaved && (transport->rtp > 255 || transport->rtcp > 255)) std::abort();
        }
        if (reader.Held() > 65536 + kMaxHeaderBytes + kMaxBodyBytes + step + 8) std::abort();
    }
    return 0;
}
