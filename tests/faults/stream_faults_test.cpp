// The stream component when memory runs out: each allocation of its operations fails in turn. A frame that was refused
// is as if it had not been given, or its time has gone by, as the format has it; the packet of one that was taken can
// be fetched, if not at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "Muxora.h"
#include "MuxoraExt.h"
#include "core/clock.h"
#include "faults/scenario.h"
#include "support/allocation_counter.h"
#include "support/hex.h"

namespace {

using Orvane::Muxora::AttributeMap;
using Orvane::Muxora::CMuxora;
using Orvane::Muxora::IMuxoraData;
using Orvane::Muxora::ScopedClock;
using test::ByteVector;
using Lost = test::FormatUnderTest::Lost;

struct Key {
    const char* key;
    uint32_t format;
    Lost lost;
    bool loses_in_silence;  // a frame may be answered with true and come to nothing
};

constexpr Key kKeys[] = {
    {"ovx", MX_FORMAT_OVX, Lost::kTimeGoesOn, true},
    {"asf", MX_FORMAT_ASF_STREAM, Lost::kAsIfNotGiven, false},
    {"flv", MX_FORMAT_FLV_STREAM, Lost::kAsIfNotGiven, false},
    {"rtp", MX_FORMAT_RTP, Lost::kTimeGoesOn, false},
    {"ts", MX_FORMAT_TS, Lost::kAsIfNotGiven, false},
    {"ps", MX_FORMAT_PS, Lost::kTimeGoesOn, false},
    {"ovps", MX_FORMAT_PS_OV, Lost::kTimeGoesOn, false},
    {"gaysps", MX_FORMAT_PS_GAYS, Lost::kTimeGoesOn, false},
    {"gdps", MX_FORMAT_PS_GD, Lost::kTimeGoesOn, false},
};

struct Frame {
    AttributeMap attributes;
    ByteVector bytes;
    unsigned length;
};

std::vector<Frame> Frames(uint32_t format) {
    std::vector<Frame> out;
    for (const test::ScenarioFrame& frame : test::Scenario(format)) {
        const MXFrameInfo& record = frame.record;
        const bool video = record.frame_type == MX_FRAME_VIDEO;
        const int codec = video ? 2 : record.encode_type == MX_AUDIO_AAC ? 33 : 28;
        out.push_back({{{"frametype", video ? 86 : 65},
                        {"framesubtype", record.frame_sub_type == MX_SUB_I ? 1 : 2},
                        {"encodetype", codec},
                        {"timestamp", record.timestamp},
                        {"width", record.width},
                        {"height", record.height},
                        {"rate", record.frame_rate},
                        {"samplespersec", record.samples_per_sec},
                        {"bitspersample", record.bits_per_sample},
                        {"channels", record.channels}},
                       frame.bytes,
                       record.frame_size});
    }
    return out;
}

struct Recording {
    std::vector<bool> taken;
    std::vector<ByteVector> packets;  // the last of each frame
    uint64_t allocations = 0;
};

// `ex`: into the caller's packet. Frames that are not in `give` are left out.
Recording Give(const Key& key, const std::vector<Frame>& scenario, const std::vector<bool>& give, bool ex,
               uint64_t successes, uint64_t failures) {
    std::vector<Frame> frames = scenario;  // some formats change them
    Recording run{std::vector<bool>(frames.size()), std::vector<ByteVector>(frames.size()), 0};
    CMuxora component(key.key);
    component.setParam("rtp_ssrc", 1);
    component.setParam("rtp_audio_sample", 48000);
    Basalt::CPacket room(1 << 20);
    const test::AllocationCounter counter;
    for (size_t i = 0; i < frames.size(); ++i) {
        if (!give[i]) continue;
        Frame& frame = frames[i];
        Basalt::TSharedPtr<IMuxoraData> packet;
        bool fetched = false;
        {
            const uint64_t used = counter.Count();
            const uint64_t left = used < successes ? successes - used : 0;
            const uint64_t failed = used > successes ? used - successes : 0;
            const test::FailingAllocations failing(left, failures - std::min(failures, failed));
            room.resize(0);
            run.taken[i] = ex ? component.inputFrameEx(frame.bytes.data(), frame.length, frame.attributes, room)
                              : component.inputFrame(frame.bytes.data(), frame.length, frame.attributes);
            fetched = component.getPacket(packet);
            run.allocations = counter.Count();
        }
        if (!fetched) fetched = component.getPacket(packet);
        if (fetched && packet->getLen() != 0) {
            run.packets[i].assign(packet->getBuffer(), packet->getBuffer() + packet->getLen());
        }
    }
    return run;
}

class StreamFaults : public testing::TestWithParam<Key> {};

INSTANTIATE_TEST_SUITE_P(All, StreamFaults, testing::ValuesIn(kKeys),
                         [](const auto& key) { return std::string(key.param.key); });

TEST_P(StreamFaults, EachAllocationInTurn) {
    const ScopedClock clock{1700000000};
    const std::vector<Frame> frames = Frames(GetParam().format);
    const std::vector<bool> all(frames.size(), true);
    size_t points = 0;
    size_t refused = 0;
    for (const bool ex : {false, true}) {
        const Recording clean = Give(GetParam(), frames, all, ex, UINT64_MAX, 0);
        ASSERT_EQ(clean.taken, all);
        const uint64_t stride = std::max<uint64_t>(1, clean.allocations / test::PointsOf(12));
        for (const uint64_t failures : {uint64_t{1}, uint64_t{3}, UINT64_MAX}) {
            for (uint64_t n = 0; n < clean.allocations; n += n < 8 ? 1 : stride, ++points) {
                SCOPED_TRACE(testing::Message()
                             << "allocation " << n << ", " << failures << (ex ? ", own packet" : ""));
                const Recording run = Give(GetParam(), frames, all, ex, n, failures);
                refused += run.taken != all;
                std::vector<bool> kept = run.taken;
                for (size_t i = 0; i < frames.size(); ++i) {
                    if (!kept[i]) continue;
                    if (GetParam().loses_in_silence && run.packets[i].empty()) kept[i] = false;
                    ASSERT_EQ(run.packets[i].empty(), clean.packets[i].empty() || !kept[i]) << "frame " << i;
                }
                if (GetParam().lost == Lost::kTimeGoesOn) continue;
                const Recording expected = Give(GetParam(), frames, kept, ex, UINT64_MAX, 0);
                for (size_t i = 0; i < frames.size(); ++i) {
                    if (!kept[i]) continue;
                    ASSERT_EQ(run.packets[i], expected.packets[i]) << "frame " << i;
                }
            }
        }
    }
    std::printf("%-8s points %4zu  with a frame refused %4zu\n", GetParam().key, points, refused);
}

}  // namespace
