// The formats with exact times when memory runs out: each allocation of a stream fails in turn, alone, with the two
// behind it, or with all behind it until the call is over. The call says so, and the frame is as if it had not been
// given: given again, it leads to the same bytes as in a run without the fault; left out, to those of a run that never
// had it.
//
// MUXORA_FAULTS=all takes every allocation; without it every third one. The table is printed.
#include <gtest/gtest.h>

#include <cstdio>

#include "MuxoraExt.h"
#include "api/format_table.h"
#include "core/clock.h"
#include "core/package.h"
#include "faults/scenario.h"
#include "support/allocation_counter.h"
#include "support/frames.h"
#include "support/iso_frames.h"
#include "support/parameter_sets.h"
#include "support/quiet_file.h"

namespace {

using Orvane::Muxora::CPackage;
using Orvane::Muxora::MakePackage;
using Orvane::Muxora::ScopedClock;
using test::ByteVector;

struct Frame {
    MXFrameInfo record;
    ByteVector bytes;
};

struct Form {
    const char* name;
    uint32_t format;
    bool header = true;  // createHeader is called
    bool times = true;   // frames bring theirs
    bool bare = false;   // the stream has sound that comes late, and no picture in front
    uint32_t mode = MX_FRAGMENT_GOP;
    uint32_t duration = 0;
    bool codecs = false;  // H.265 follows H.264
};

constexpr Form kForms[] = {
    {"fmp4", MX_FORMAT_FMP4},
    {"fmp4_by_arrival", MX_FORMAT_FMP4, true, false},
    {"fmp4_chunks", MX_FORMAT_FMP4, true, true, false, MX_FRAGMENT_CHUNK},
    {"fmp4_durations", MX_FORMAT_FMP4, true, true, false, MX_FRAGMENT_DURATION, 200},
    {"fmp4_sound", MX_FORMAT_FMP4, true, true, true},
    {"hmp4", MX_FORMAT_HMP4},
    {"hmp4_sound", MX_FORMAT_HMP4, true, true, true},
    {"fmp4_codecs", MX_FORMAT_FMP4, true, true, false, MX_FRAGMENT_GOP, 0, true},
    {"hmp4_codecs", MX_FORMAT_HMP4, true, true, false, MX_FRAGMENT_GOP, 0, true},
    {"xmkv", MX_FORMAT_XMKV},
    {"xmkv_by_arrival", MX_FORMAT_XMKV, true, false},
    {"xmkv_stream", MX_FORMAT_XMKV, false},
    {"xmkv_sound", MX_FORMAT_XMKV, true, true, true},
    {"xflv", MX_FORMAT_XFLV},
    {"xflv_by_arrival", MX_FORMAT_XFLV, true, false},
    {"xflv_stream", MX_FORMAT_XFLV, false},
    {"xflv_sound", MX_FORMAT_XFLV, true, true, true},
    {"xflv_codecs", MX_FORMAT_XFLV, true, true, false, MX_FRAGMENT_GOP, 0, true},
    {"xts", MX_FORMAT_XTS},
    {"xts_by_arrival", MX_FORMAT_XTS, true, false},
    {"xts_sound", MX_FORMAT_XTS, true, true, true},
    {"xts_codecs", MX_FORMAT_XTS, true, true, false, MX_FRAGMENT_GOP, 0, true},
};

// H.265: a key frame with its parameter sets, and a picture that needs the one before.
ByteVector HevcPicture(bool key) {
    ByteVector picture = key ? test::HevcSets() : ByteVector{};
    const ByteVector slice = key ? test::Bytes("00 00 00 01 26 01 AF 10") : test::Bytes("00 00 00 01 02 01 D0 10");
    picture.insert(picture.end(), slice.begin(), slice.end());
    return picture;
}

// Pictures whose parameter sets change once, of growing size, with a pause in them; sound in one frame or several.
std::vector<Frame> Scenario(const Form& form) {
    std::vector<Frame> frames;
    const auto add = [&](ByteVector bytes, MXFrameInfo record, uint32_t scale, int64_t time, int64_t duration) {
        record.frame_size = static_cast<uint32_t>(bytes.size());
        record.utc_time = 1700000000;
        if (form.times) MXSetFrameTimes(&record, scale, time, time, duration);
        frames.push_back({record, std::move(bytes)});
    };
    ByteVector none;
    int64_t sound_time = 48000;
    for (uint32_t i = 0; i < 30; ++i) {
        if (!form.bare) {
            const bool key = i % 10 == 0;
            const uint32_t pause = i >= 15 ? 1000 : 0;
            const bool other = form.codecs && i >= 20;
            ByteVector picture = other ? HevcPicture(key)
                                 : key ? test::KeyFrameOfAnEncoder()
                                       : test::PFrame(static_cast<uint8_t>(i));
            // level_idc of the sequence parameter set
            if (key && i >= 20 && !other) picture[7] = 0x29;
            picture.resize(100 + size_t{i} * i * i * 2, static_cast<uint8_t>(0x21 + i));
            MXFrameInfo video = test::VideoFrame(none, other ? MX_VIDEO_H265 : MX_VIDEO_H264, key ? MX_SUB_I : MX_SUB_P,
                                                 1000 + 40 * i + pause);
            add(std::move(picture), video, 90000, 90000 + 3600 * int64_t{i} + 90 * pause, 3600);
        }
        const MXFrameInfo sound = test::AudioFrame(none, MX_AUDIO_AAC, 1000 + 40 * i);
        ByteVector bytes = test::AdtsFrame(60 + i * i * 8, 0x31);
        const uint32_t count = i % 7 == 3 ? 3 : 1;
        for (uint32_t more = 1; more < count; ++more) {
            const ByteVector next = test::AdtsFrame(200, 0x32);
            bytes.insert(bytes.end(), next.begin(), next.end());
        }
        add(std::move(bytes), sound, 48000, sound_time, 1024 * int64_t{count});
        sound_time += 1024 * int64_t{count};
    }
    return frames;
}

struct Recording {
    test::QuietFile file{2 << 20};
    std::vector<uint32_t> results;  // of each frame when it was given first
    bool finished = false;
    uint64_t allocations = 0;
};

// One stream. A frame that memory was missing for is given `tries` times in all; the frames of `left_out` are not
// given.
class Stream {
  public:
    Stream(const Form& form, const std::vector<Frame>& frames) : form_(form), frames_(frames) {}

    Recording Record(uint64_t successes, uint64_t failures, int tries, const std::vector<bool>& given) {
        Recording run;
        run.results.assign(frames_.size(), MX_OK);
        const test::AllocationCounter counter;
        uint64_t left = successes;
        uint64_t to_fail = failures;
        // Each call has its part of the faults; for good lasts until the end of the call in which it began.
        const auto call = [&](auto action) -> uint32_t {
            const uint64_t before = counter.Count();
            uint32_t result = MX_NO_RESOURCES;
            {
                const test::FailingAllocations failing(left, to_fail);
                try {
                    result = action();
                } catch (const std::bad_alloc&) {
                    result = MX_NO_RESOURCES;
                }
            }
            const uint64_t used = counter.Count() - before;
            if (used > left) to_fail = to_fail > used - left && failures != UINT64_MAX ? to_fail - (used - left) : 0;
            left = used < left ? left - used : 0;
            return result;
        };
        const auto until_done = [&](int times, auto action) {
            uint32_t result = MX_NO_RESOURCES;
            for (int i = 0; i < times && result == MX_NO_RESOURCES; ++i)
                result = call(action);
            return result;
        };
        MXCreateParam param = run.file.Param();
        std::unique_ptr<CPackage> package;
        until_done(5, [&]() -> uint32_t {
            package = MakePackage(form_.format, &param);
            return package != nullptr ? MX_OK : MX_NO_RESOURCES;
        });
        MXFragmentParam fragments{};
        fragments.size = sizeof fragments;
        fragments.mode = form_.mode;
        fragments.duration_ms = form_.duration;
        fragments.boxes = MX_BOX_STYP | MX_BOX_SIDX;
        MXSetFragmentParam(package.get(), &fragments);
        until_done(5, [&] { return package->init(); });
        MXHeaderInfo info{};
        info.video_present = form_.bare ? 0 : 1;
        info.video_encode_type = MX_VIDEO_H264;
        info.audio_present = 1;
        info.audio_encode_type = MX_AUDIO_AAC;
        info.samples_per_sec = 48000;
        if (form_.header) until_done(5, [&] { return package->createHeader(&info, 0); });
        for (size_t i = 0; i < frames_.size(); ++i) {
            if (!given[i]) continue;
            MXFrameInfo record = frames_[i].record;
            ByteVector bytes = frames_[i].bytes;
            record.frame_pointer = bytes.data();
            const auto give = [&] { return package->inputFrame(&record, 0); };
            run.results[i] = call(give);
            if (run.results[i] == MX_NO_RESOURCES) until_done(tries - 1, give);
        }
        run.finished = until_done(5, [&] { return package->createTailer(nullptr, 0); }) == MX_OK;
        run.allocations = counter.Count();
        return run;
    }

  private:
    const Form& form_;
    const std::vector<Frame>& frames_;
};

class ExactFaults : public testing::TestWithParam<Form> {
  protected:
    const ScopedClock clock{1700000000};
    const std::vector<Frame> frames = Scenario(GetParam());
    const std::vector<bool> all = std::vector<bool>(frames.size(), true);
};

INSTANTIATE_TEST_SUITE_P(All, ExactFaults, testing::ValuesIn(kForms),
                         [](const auto& form) { return std::string(form.param.name); });

TEST_P(ExactFaults, AFrameThatMemoryWasMissingForIsAsIfItHadNotBeenGiven) {
    const uint64_t stride = test::TryAllPoints() ? 1 : 3;
    Stream stream(GetParam(), frames);
    const Recording clean = stream.Record(UINT64_MAX, 0, 1, all);
    ASSERT_TRUE(clean.finished);
    for (const uint32_t result : clean.results)
        ASSERT_EQ(result, uint32_t{MX_OK});
    ASSERT_GT(clean.file.bytes.size(), 50000u);
    size_t points = 0;
    size_t refused = 0;
    for (const uint64_t failures : {uint64_t{1}, uint64_t{3}, UINT64_MAX}) {
        for (uint64_t n = 0; n < clean.allocations; n += n < 40 ? 1 : stride) {
            SCOPED_TRACE(testing::Message() << "allocation " << n << ", " << failures);
            const Recording again = stream.Record(n, failures, 5, all);
            ++points;
            EXPECT_TRUE(again.finished);
            EXPECT_TRUE(again.file.bytes == clean.file.bytes) << "given again, it is another file";
            const Recording lost = stream.Record(n, failures, 1, all);
            std::vector<bool> kept = all;
            for (size_t i = 0; i < frames.size(); ++i)
                kept[i] = lost.results[i] == MX_OK;
            refused += kept != all;
            const Recording expected = stream.Record(UINT64_MAX, 0, 1, kept);
            EXPECT_EQ(lost.file.bytes.size(), expected.file.bytes.size());
            EXPECT_TRUE(lost.file.bytes == expected.file.bytes) << "left out, it is another file";
            if (HasFailure()) return;
        }
    }
    std::printf("%-16s allocations %4llu  points %4zu  with a frame refused %4zu\n", GetParam().name,
                static_cast<unsigned long long>(clean.allocations), points, refused);
    EXPECT_GT(refused, 0u);
}

}  // namespace
