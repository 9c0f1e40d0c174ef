// A receiver that takes less of a block than it is given (MXOutputBlock::length lowered by the callback): each block of
// the frames in turn is taken by half, or not at all; alone, with the two behind it, with all behind it. The stream
// goes on: every call answers as without the fault, and what is given of the other frames is the same. An index
// has the places of what was taken, so that an MP4 still leads to every sample that is there whole.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "MuxoraExt.h"
#include "core/clock.h"
#include "faults/scenario.h"
#include "support/hex.h"
#include "support/iso_file.h"

namespace {

using Orvane::Muxora::ScopedClock;
using test::ByteVector;
using test::FormatUnderTest;

enum class Taken { kAll, kHalf, kNothing };

struct Fault {
    Taken taken = Taken::kAll;
    size_t first = 0;  // among the blocks of frames
    size_t count = 0;
};

struct Recording {
    struct Block {
        size_t frame;
        bool whole;
        ByteVector bytes;
    };

    Recording(uint32_t format, const Fault& fault) : fault_(fault) {
        MXCreateParam param{};
        param.user = this;
        param.output = Take;
        MXHandle handle = MX_CreateHandle(format, &param);
        MXHeaderInfo info{};
        MXRtpParam rtp{};
        rtp.max_rtp_packet_length = 1400;
        rtp.rtp_audio_sample = 48000;
        MX_SetParam(handle, MX_PARAM_RTP, &rtp, sizeof rtp);
        results.push_back(MX_CreateHeader(handle, &info));
        for (test::ScenarioFrame& frame : test::Scenario(format)) {
            in_frames_ = true;
            frame.record.frame_pointer = frame.bytes.data();
            results.push_back(MX_InputFrame(handle, &frame.record));
            ++frame_;
        }
        in_frames_ = false;
        tail = file.size();
        results.push_back(MX_CreateTailer(handle, nullptr));
        MX_DestroyHandle(handle);
    }

    static int32_t Take(const MXOutputBlock* block, void* user) {
        auto& self = *static_cast<Recording*>(user);
        const auto* const data = static_cast<const uint8_t*>(block->data);
        // The head of mdat, which goes out with the first frame, is no frame's.
        const bool of_frame = self.in_frames_ && block->length > 16;
        const bool hit = of_frame && self.blocks.size() - self.fault_.first < self.fault_.count &&
                         self.blocks.size() >= self.fault_.first;
        if (of_frame) self.blocks.push_back({self.frame_, !hit, {data, data + block->length}});
        // A block of the interface is the callback's to change in this one member.
        if (hit) const_cast<MXOutputBlock*>(block)->length = self.fault_.taken == Taken::kHalf ? block->length / 2 : 0;
        const size_t at = block->seek_type == MX_SEEK_ABSOLUTE ? static_cast<size_t>(block->offset) : self.file.size();
        self.file.resize(std::max(self.file.size(), at + block->length));
        std::copy(data, data + block->length, self.file.begin() + static_cast<std::ptrdiff_t>(at));
        return 0;
    }

    std::vector<uint32_t> results;
    std::vector<Block> blocks;  // of frames, as they were given
    ByteVector file;            // as it was taken
    size_t tail = 0;            // where that of MX_CreateTailer begins

  private:
    Fault fault_;
    bool in_frames_ = false;
    size_t frame_ = 0;
};

class LengthFaults : public testing::TestWithParam<FormatUnderTest> {
  protected:
    // The blocks do not say where they lie: what was taken of one is nothing to the next.
    bool OnlyForward() const {
        switch (GetParam().number) {
            case MX_FORMAT_OVX:
            case MX_FORMAT_OVX_ALT:
            case MX_FORMAT_RTP:
            case MX_FORMAT_TS:
            case MX_FORMAT_PS:
            case MX_FORMAT_PS_OV:
            case MX_FORMAT_PS_GAYS:
            case MX_FORMAT_PS_GD:
            case MX_FORMAT_FLV_STREAM:
            case MX_FORMAT_WAV:
            case MX_FORMAT_XTS:
            case MX_FORMAT_XFLV:
                return true;
            default:
                return false;
        }
    }
    bool IsIso() const {
        const uint32_t number = GetParam().number;
        return number == MX_FORMAT_MP4 || number == MX_FORMAT_MOV || number == MX_FORMAT_MP4_64 ||
               number == MX_FORMAT_MOV_64;
    }

    void Check(const Recording& run) const {
        ASSERT_EQ(run.results, clean.results);
        ASSERT_EQ(run.blocks.size(), clean.blocks.size());
        if (OnlyForward()) {
            for (size_t i = 0; i < run.blocks.size(); ++i)
                ASSERT_EQ(run.blocks[i].bytes, clean.blocks[i].bytes) << "block " << i;
        }
        if (IsIso()) CheckIndex(run);
    }

    // Each sample whose block was taken whole is where the index says. The sizes of mdat and of the samples are those
    // that were given, so the index is read by itself.
    static void CheckIndex(const Recording& run) {
        const test::IsoFile file(test::Slice(run.file, run.tail, run.file.size() - run.tail));
        std::vector<ByteVector> samples;
        for (size_t track = 0; track < file.TrackCount(); ++track) {
            const auto offsets = file.Offsets(track);
            const auto sizes = file.Sizes(track);
            ASSERT_EQ(offsets.size(), sizes.size());
            for (size_t i = 0; i < offsets.size(); ++i) {
                const auto begin = static_cast<size_t>(offsets[i]);
                const size_t end = std::min(run.file.size(), begin + static_cast<size_t>(sizes[i]));
                ASSERT_LE(begin, run.file.size());
                samples.push_back(test::Slice(run.file, begin, end - begin));
            }
        }
        for (const Recording::Block& block : run.blocks) {
            if (!block.whole) continue;
            ASSERT_NE(std::find(samples.begin(), samples.end(), block.bytes), samples.end()) << "frame " << block.frame;
        }
    }

    const ScopedClock clock{1700000000};
    const Recording clean{GetParam().number, {}};
};

INSTANTIATE_TEST_SUITE_P(All, LengthFaults, testing::ValuesIn(test::FormatsUnderTest()), [](const auto& format) {
    std::string name = format.param.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

TEST_P(LengthFaults, EachBlockInTurn) {
    size_t points = 0;
    for (const Taken taken : {Taken::kHalf, Taken::kNothing}) {
        for (const size_t count : {size_t{1}, size_t{3}, clean.blocks.size()}) {
            const size_t stride = std::max<size_t>(1, clean.blocks.size() / test::PointsOf(20));
            for (size_t first = 0; first < clean.blocks.size(); first += stride, ++points) {
                SCOPED_TRACE(testing::Message() << "block " << first << ", " << count << " of them");
                Check(Recording(GetParam().number, {taken, first, count}));
                if (HasFatalFailure()) return;
            }
        }
    }
    std::printf("%-12s blocks %4zu  points %4zu\n", GetParam().name, clean.blocks.size(), points);
}

}  // namespace
