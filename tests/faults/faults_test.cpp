// Every allocation of a stream fails in turn: the N-th alone, it and the two behind it, it and all behind it. The
// oracle is the format itself: frames that were refused are as if they had not been given, so the file must be, byte
// for byte, the one that a second packager makes of the others alone. Where the time of a lost frame goes by (RTP, PS,
// OVX) each block must be the one of the undisturbed stream.
//
// MUXORA_FAULTS=all takes every allocation; without it every third one, for a short run. The table is printed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>

#include "core/clock.h"
#include "faults/scenario.h"
#include "support/allocation_counter.h"
#include "support/hex.h"
#include "support/iso_file.h"
#include "support/ps_reader.h"
#include "support/quiet_file.h"

namespace {

using Orvane::Muxora::ScopedClock;
using test::ByteVector;
using test::FailingAllocations;
using test::FormatUnderTest;
using test::ScenarioFrame;
using Lost = FormatUnderTest::Lost;

constexpr size_t kRoom = 4 << 20;
constexpr uint64_t kForGood = UINT64_MAX;

// What a run made, block by block, without memory of its own while allocations fail.
struct Output {
    struct Block {
        size_t at;  // in `bytes`
        uint32_t length;
        int64_t frame;  // that it belongs to; -1 head, frame count for the tail
    };

    Output() {
        bytes.reserve(kRoom);
        blocks.reserve(20000);
    }
    static int32_t Take(const MXOutputBlock* block, void* user) {
        auto& self = *static_cast<Output*>(user);
        test::QuietFile::Output(block, &self.file);
        if (self.bytes.size() + block->length > self.bytes.capacity() || self.blocks.size() == self.blocks.capacity()) {
            std::abort();
        }
        const auto* const data = static_cast<const uint8_t*>(block->data);
        self.blocks.push_back({self.bytes.size(), block->length, self.frame});
        self.bytes.insert(self.bytes.end(), data, data + block->length);
        return 0;
    }
    // All bytes that a frame came to.
    ByteVector OfFrame(int64_t number) const {
        ByteVector out;
        for (const Block& block : blocks) {
            if (block.frame != number) continue;
            const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(block.at);
            out.insert(out.end(), first, first + block.length);
        }
        return out;
    }

    test::QuietFile file{kRoom};
    ByteVector bytes;
    std::vector<Block> blocks;
    int64_t frame = -1;
};

// The caller's pool: it takes part in the faults.
void* PoolAlloc(int32_t size) {
    return ::operator new(static_cast<size_t>(size), std::nothrow);
}
void PoolFree(void* buffer, uint32_t /*size*/) {
    ::operator delete(buffer);
}

struct Result {
    Output output;
    std::vector<uint32_t> results;  // of each frame that was given; MX_NO_RESOURCES for one never reached
    bool started = false;
    bool finished = false;
    uint64_t allocations = 0;
    ByteVector snapshot;
    bool has_snapshot = false;
};

// Runs the frames for which `give` is true. `successes` allocations succeed, `failures` behind them fail.
std::unique_ptr<Result> RunStream(uint32_t format, const std::vector<ScenarioFrame>& scenario,
                                  const std::vector<bool>& give, uint64_t successes, uint64_t failures) {
    auto result = std::make_unique<Result>();
    result->results.assign(scenario.size(), MX_NO_RESOURCES);
    result->snapshot.reserve(1 << 16);
    // Some formats change the frames.
    std::vector<ScenarioFrame> frames = scenario;
    MXCreateParam param{};
    param.user = &result->output;
    param.output = Output::Take;
    param.alloc = PoolAlloc;
    param.free = PoolFree;
    MXHeaderInfo info{};
    info.reserved_gap = 20000;
    MXRtpParam rtp{};
    rtp.rtp_audio_sample = 48000;
    rtp.rtp_ssrc = 1;
    rtp.rtp_audio_ssrc = 2;
    rtp.max_rtp_packet_length = 1400;

    MXHandle handle = nullptr;
    {
        const test::AllocationCounter counter;
        const FailingAllocations failing(successes, failures);
        handle = MX_CreateHandle(format, &param);
        if (handle != nullptr) {
            MX_SetParam(handle, MX_PARAM_RTP, &rtp, sizeof rtp);
            result->started = MX_CreateHeader(handle, &info) == MX_OK;
            if (!result->started) result->started = MX_CreateHeader(handle, &info) == MX_OK;
        }
        for (size_t i = 0; result->started && i < frames.size(); ++i) {
            if (!give[i]) continue;
            result->output.frame = static_cast<int64_t>(i);
            frames[i].record.frame_pointer = frames[i].bytes.data();
            result->results[i] = MX_InputFrame(handle, &frames[i].record);
            if (i == frames.size() / 2) {
                MXOutputBlock block{};
                const uint32_t size = MX_GetBackup(handle, &block);
                if (size != 0) {
                    const auto* const bytes = static_cast<const uint8_t*>(block.data);
                    result->snapshot.assign(bytes, bytes + size);
                    result->has_snapshot = true;
                }
            }
        }
        result->output.frame = static_cast<int64_t>(frames.size());
        if (result->started) result->finished = MX_CreateTailer(handle, nullptr) == MX_OK;
        result->allocations = counter.Count();
    }
    // A tail that found no memory may be asked for again.
    if (result->started && !result->finished) result->finished = MX_CreateTailer(handle, nullptr) == MX_OK;
    MX_DestroyHandle(handle);
    return result;
}

// A packet of RTP may have another sequence number when packets before it were lost.
ByteVector WithoutSequence(uint32_t format, const Output& output, int64_t frame) {
    if (format != MX_FORMAT_RTP) return output.OfFrame(frame);
    ByteVector out;
    for (const Output::Block& block : output.blocks) {
        if (block.frame != frame) continue;
        ByteVector packet(output.bytes.begin() + static_cast<std::ptrdiff_t>(block.at),
                          output.bytes.begin() + static_cast<std::ptrdiff_t>(block.at + block.length));
        // Length prefix, V/P/X/CC, marker and payload type: then the two bytes.
        if (packet.size() >= 6) packet[4] = packet[5] = 0;
        out.insert(out.end(), packet.begin(), packet.end());
    }
    return out;
}

bool IsPs(uint32_t format) {
    return format == MX_FORMAT_PS || format == MX_FORMAT_PS_OV || format == MX_FORMAT_PS_GAYS ||
           format == MX_FORMAT_PS_GD;
}

struct Row {
    uint64_t allocations = 0;
    uint64_t points = 0;
    uint64_t unharmed = 0;     // everything answered 0
    uint64_t refused = 0;      // one frame or more was refused
    uint64_t in_silence = 0;   // one frame or more was lost and answered 0
    uint64_t not_started = 0;  // no handle, or no head
};

class Faults : public testing::TestWithParam<FormatUnderTest> {
  protected:
    Faults() : scenario(test::Scenario(GetParam().number)), all(scenario.size(), true) {}

    void Check(const Result& run, Row& row) {
        // A handle that found no work buffer refuses every frame, and has no tail.
        const bool useless = std::find(run.results.begin(), run.results.end(), uint32_t{MX_OK}) == run.results.end() &&
                             !run.finished && run.output.bytes.empty();
        if (!run.started || (useless && GetParam().lost == Lost::kAsIfNotGiven)) {
            ++row.not_started;
            return;
        }
        // RTP has no tail.
        if (GetParam().number != MX_FORMAT_RTP) {
            EXPECT_TRUE(run.finished);
        }
        std::vector<bool> kept(scenario.size());
        bool refused = false;
        bool in_silence = false;
        for (size_t i = 0; i < scenario.size(); ++i) {
            const bool lost_now = clean->results[i] == MX_OK && run.results[i] != MX_OK;
            // A picture in front of the first key frame answers what the format says about those.
            refused = refused || lost_now;
            kept[i] = run.results[i] == MX_OK;
            const bool silent = kept[i] && !GetParam().gathers && run.output.OfFrame(static_cast<int64_t>(i)).empty() &&
                                !clean->output.OfFrame(static_cast<int64_t>(i)).empty();
            if (silent) {
                kept[i] = false;
                in_silence = true;
            }
        }
        // A picture that comes ahead of the first key frame goes without a word; without one before it none is lost so.
        if (in_silence && !refused) {
            ++row.in_silence;
            EXPECT_TRUE(GetParam().loses_in_silence);
        } else if (refused) {
            ++row.refused;
        } else {
            ++row.unharmed;
        }
        if (run.has_snapshot) {
            EXPECT_NO_THROW(test::IsoFile{run.snapshot});
        }
        if (GetParam().lost == Lost::kAsIfNotGiven) {
            const auto expected = RunStream(GetParam().number, scenario, kept, kForGood, 0);
            EXPECT_EQ(run.output.file.bytes.size(), expected->output.file.bytes.size());
            EXPECT_TRUE(run.output.file.bytes == expected->output.file.bytes) << "the file is another one";
            return;
        }
        for (size_t i = 0; i < scenario.size(); ++i) {
            if (!kept[i]) continue;
            const auto number = static_cast<int64_t>(i);
            if (IsPs(GetParam().number)) {
                EXPECT_NO_THROW(test::ReadPs(run.output.OfFrame(number)));
                EXPECT_FALSE(run.output.OfFrame(number).empty());
            } else {
                EXPECT_TRUE(WithoutSequence(GetParam().number, run.output, number) ==
                            WithoutSequence(GetParam().number, clean->output, number))
                    << "frame " << i;
            }
        }
    }

    const ScopedClock clock{1700000000};
    const std::vector<ScenarioFrame> scenario;
    const std::vector<bool> all;
    const std::unique_ptr<Result> clean = RunStream(GetParam().number, scenario, all, kForGood, 0);
};

INSTANTIATE_TEST_SUITE_P(All, Faults, testing::ValuesIn(test::ClassicFormatsUnderTest()), [](const auto& format) {
    std::string name = format.param.name;
    for (char& letter : name)
        if (letter == '-') letter = '_';
    return name;
});

TEST_P(Faults, EachAllocationInTurn) {
    const uint64_t stride = test::TryAllPoints() ? 1 : 3;
    ASSERT_TRUE(clean->started);
    for (const uint32_t result : clean->results)
        ASSERT_EQ(result, uint32_t{MX_OK});
    Row row;
    row.allocations = clean->allocations;
    for (const uint64_t failures : {uint64_t{1}, uint64_t{3}, kForGood}) {
        for (uint64_t n = 0; n < clean->allocations; n += n < 8 ? 1 : stride) {
            SCOPED_TRACE(testing::Message() << GetParam().name << ": allocation " << n << ", " << failures);
            const auto run = RunStream(GetParam().number, scenario, all, n, failures);
            ++row.points;
            Check(*run, row);
            if (HasFailure()) return;
        }
    }
    std::printf(
        "%-12s allocations %4llu  points %5llu  unharmed %4llu  refused %4llu  lost in silence %4llu  not started "
        "%4llu\n",
        GetParam().name, static_cast<unsigned long long>(row.allocations), static_cast<unsigned long long>(row.points),
        static_cast<unsigned long long>(row.unharmed), static_cast<unsigned long long>(row.refused),
        static_cast<unsigned long long>(row.in_silence), static_cast<unsigned long long>(row.not_started));
}

}  // namespace
