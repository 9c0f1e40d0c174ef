#include "exact/hmp4_packet.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "exact_stream.h"
#include "support/iso_file.h"

namespace Orvane::Muxora {
namespace {

using test::Adts;
using test::Bytes;
using test::ByteVector;
using test::ExactStream;
using test::IsoFile;
using test::Text;
using test::operator+;

struct Hmp4Packet : testing::Test {
    std::unique_ptr<ExactStream> stream = ExactStream::Of<CHmp4Packet>(MX_FORMAT_HMP4);

    static ByteVector Key(uint8_t fill = 0x55) {
        return test::Units({test::HighSps(), test::HighPps(), Bytes("65 88") + ByteVector(20, fill)});
    }
    static ByteVector Inter(uint8_t fill = 0x33) { return test::Units({Bytes("41 9A") + ByteVector(6, fill)}); }
    // The sample that comes of a frame.
    static ByteVector KeySample(uint8_t fill = 0x55) { return Bytes("00 00 00 16 65 88") + ByteVector(20, fill); }
    static ByteVector InterSample(uint8_t fill = 0x33) { return Bytes("00 00 00 08 41 9A") + ByteVector(6, fill); }

    void VideoOnly() {
        const MXFragmentParam param{sizeof(MXFragmentParam), MX_FRAGMENT_GOP, 0, MX_TRACKS_VIDEO, 0, 0};
        EXPECT_EQ(static_cast<CHmp4Packet&>(*stream->package).SetFragmentParam(param), 0u);
    }
    // The payload of the only box of a kind, whatever lies around it.
    static ByteVector Payload(const ByteVector& bytes, const std::string& type, size_t size, size_t from = 0) {
        const auto at =
            std::search(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end(), type.begin(), type.end());
        const auto place = static_cast<size_t>(at - bytes.begin());
        return test::Slice(bytes, place + 4, size);
    }
};

TEST_F(Hmp4Packet, IsFragmentedWhileItGrows) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Audio(Adts(ByteVector(10)), 0, 1024);
    stream->Video(Key(), MX_SUB_I, 3600, 3600);
    stream->Video(Key(), MX_SUB_I, 7200, 7200);
    const IsoFile file(stream->File());
    EXPECT_EQ(file.Layout(), "ftyp free moov free free moof mdat free moof mdat");
    EXPECT_EQ(file.Size("free"), 16u);
    EXPECT_EQ(file.Size("ftyp"), 36u);
    EXPECT_EQ(file.Boxes()[2].begin, 52u);
    // mfhd's sequence_number, counted from 1 (ISO/IEC 14496-12 8.8.5).
    EXPECT_EQ(test::Slice(file.Payload("moof:0"), 4, 12), Text("mfhd") + Bytes("00000000 00000001"));
    EXPECT_EQ(test::Slice(file.Payload("moof:1"), 4, 12), Text("mfhd") + Bytes("00000000 00000002"));
    // A patch has no time and no stream.
    for (const auto& block : stream->blocks) {
        if (block.note.kind != MX_BLOCK_PATCH) continue;
        EXPECT_EQ(block.note.flags, 0u);
        EXPECT_EQ(block.note.time_scale, 0u);
        EXPECT_EQ(block.note.dts, 0);
        EXPECT_EQ(block.note.duration, 0);
    }
    // Each block says where it goes.
    EXPECT_EQ(stream->blocks[0].note.block.seek_type, 0u);
    EXPECT_EQ(stream->blocks[1].note.block.offset, static_cast<int64_t>(stream->blocks[0].data.size()));
}

// Gathered in the processor's cache, whatever the rate is; sound does not end a fragment in which there are pictures.
TEST_F(Hmp4Packet, AFragmentStaysBelowHalfAMegabyte) {
    const auto inter = [](size_t size) { return test::Units({Bytes("41 9A") + ByteVector(size - 6, 0x33)}); };
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);  // 26 bytes
    stream->Audio(Adts(ByteVector(10)), 0, 1024);
    stream->Video(inter(300000), MX_SUB_P, 3600, 3600);
    stream->Video(inter(300000), MX_SUB_P, 7200, 7200);
    stream->Audio(Adts(ByteVector(8000)), 1024, 1024);
    stream->Video(inter(216288), MX_SUB_P, 10800, 10800);
    stream->Video(inter(600000), MX_SUB_P, 14400, 14400);
    stream->Video(inter(100), MX_SUB_P, 18000, 18000);
    const IsoFile file(stream->File());
    std::vector<size_t> media;
    for (const auto& box : file.Boxes()) {
        if (box.type == "mdat") media.push_back(box.end - box.payload);
    }
    EXPECT_EQ(media, (std::vector<size_t>{26 + 10 + 300000, size_t{512} << 10, 600000}));
}

TEST_F(Hmp4Packet, IsAPlainFileInTheEnd) {
    stream->Open();
    stream->Video(Key(1), MX_SUB_I, 0, 0);
    stream->Audio(Adts(ByteVector(10, 0xA1)), 0, 1024);
    stream->Video(Inter(2), MX_SUB_P, 3600, 3600);
    stream->Audio(Adts(ByteVector(11, 0xA2)), 1024, 1024);
    stream->Video(Key(3), MX_SUB_I, 7200, 7200);
    stream->Audio(Adts(ByteVector(12, 0xA3)), 2048, 500);
    stream->Video(Inter(4), MX_SUB_P, 10000, 10000, 3000);
    EXPECT_EQ(stream->Close(), 0u);
    const IsoFile file(stream->File());
    EXPECT_EQ(file.Layout(), "ftyp mdat moov");
    EXPECT_EQ(file.TrackCount(), 2u);
    EXPECT_EQ(file.Sizes(0), (std::vector<uint64_t>{26, 12, 26, 12}));
    EXPECT_EQ(file.Sizes(1), (std::vector<uint64_t>{10, 11, 12}));
    EXPECT_EQ(file.SyncSamples(0), (std::vector<uint64_t>{1, 3}));
    EXPECT_FALSE(file.Has(IsoFile::Table(1, "stss")));
    EXPECT_FALSE(file.Has(IsoFile::Table(0, "ctts")));
    using Runs = std::vector<std::pair<uint64_t, uint64_t>>;
    EXPECT_EQ(file.Runs(0), (Runs{{2, 3600}, {1, 2800}, {1, 3000}}));
    EXPECT_EQ(file.Runs(1), (Runs{{2, 1024}, {1, 500}}));
    // One chunk a fragment.
    EXPECT_EQ(file.Payload(IsoFile::Table(0, "stsc")), Bytes("00000000 00000001 00000001 00000002 00000001"));
    EXPECT_EQ(file.Payload(IsoFile::Table(1, "stsc")),
              Bytes("00000000 00000002 00000001 00000002 00000001 00000002 00000001 00000001"));
    const auto video = file.Offsets(0);
    const auto audio = file.Offsets(1);
    ASSERT_EQ(video.size(), 2u);
    ASSERT_EQ(audio.size(), 2u);
    EXPECT_EQ(test::Slice(file.Bytes(), video[0], 38), KeySample(1) + InterSample(2));
    EXPECT_EQ(test::Slice(file.Bytes(), video[1], 38), KeySample(3) + InterSample(4));
    EXPECT_EQ(test::Slice(file.Bytes(), audio[0], 21), ByteVector(10, 0xA1) + ByteVector(11, 0xA2));
    EXPECT_EQ(test::Slice(file.Bytes(), audio[1], 12), ByteVector(12, 0xA3));
    // 90000 and 48000 have the scale 720000 in common: 13000 ticks of the first, 2548 of the second.
    EXPECT_EQ(file.Number("moov/mvhd", 12, 4), 720000u);
    EXPECT_EQ(file.Number("moov/mvhd", 16, 4), 104000u);
    EXPECT_EQ(file.Number("moov/trak:0/tkhd", 20, 4), 104000u);
    EXPECT_EQ(file.Number("moov/trak:1/tkhd", 20, 4), 38220u);
    EXPECT_EQ(file.Number("moov/trak:1/mdia/mdhd", 16, 4), 2548u);
    EXPECT_FALSE(file.Has("moov/mvex"));
    // What begins at 0 and is shown from its beginning needs no edits.
    EXPECT_FALSE(file.Has("moov/trak:0/edts"));
    EXPECT_FALSE(file.Has("moov/trak:1/edts"));
}

// The whole fragments that a walk over the boxes meets; one that is not whole fails the test.
size_t FragmentsSeen(const ByteVector& file) {
    const auto size_at = [&file](size_t at) {
        return size_t{file.at(at)} << 24 | size_t{file.at(at + 1)} << 16 | size_t{file.at(at + 2)} << 8 |
               file.at(at + 3);
    };
    size_t seen = 0;
    for (size_t at = 0; at + 8 <= file.size();) {
        const size_t end = at + size_at(at);
        EXPECT_GE(end, at + 8);
        if (end < at + 8) break;
        if (test::Slice(file, at + 4, 4) == Text("moof")) {
            EXPECT_LE(end + 8, file.size());
            EXPECT_EQ(test::Slice(file, end + 4, 4), Text("mdat"));
            EXPECT_LE(end + size_at(end), file.size());
            ++seen;
        }
        at = end;
    }
    return seen;
}

TEST_F(Hmp4Packet, AFragmentThatIsNotWholeIsNotSeen) {
    stream->Open();
    for (int64_t i = 0; i < 3; ++i) {
        stream->Video(Key(), MX_SUB_I, i * 3600, i * 3600, 3600);
        stream->Audio(Adts(ByteVector(10)), i * 1920, 1024);
    }
    stream->Close();
    ExactStream killed;
    // The head; then guard, fragment, release, three times.
    ASSERT_GE(stream->blocks.size(), 10u);
    for (size_t i = 0; i < 10; ++i) {
        const ExactStream::Block& block = stream->blocks[i];
        killed.blocks.push_back(block);
        const bool releases = i != 0 && i % 3 == 0;
        EXPECT_EQ(block.note.kind, uint32_t{i == 0 ? MX_BLOCK_HEADER : i % 3 == 2 ? MX_BLOCK_MEDIA : MX_BLOCK_PATCH});
        for (size_t size = 1; i != 0 && size <= block.data.size(); ++size) {
            killed.blocks.back().data = test::Slice(block.data, 0, size);
            ASSERT_EQ(FragmentsSeen(killed.File()), (i - 1) / 3 + (releases ? 1 : 0)) << i << " " << size;
        }
    }
}

// The last block is the one that makes a plain file of it.
TEST_F(Hmp4Packet, TheIndexStandsBeforeTheHeadIsPatched) {
    VideoOnly();
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Close();
    std::string kinds;
    for (const auto& block : stream->blocks)
        kinds += "hmip"[block.note.kind];
    EXPECT_EQ(kinds, "hpmpip");
    const auto& patch = stream->Last();
    EXPECT_EQ(patch.note.block.offset, 36);
    const size_t end = static_cast<size_t>(stream->blocks[4].note.block.offset);
    ByteVector head(8);
    for (size_t i = 0; i < 4; ++i)
        head[i] = static_cast<uint8_t>((end - 36) >> (24 - 8 * i));
    EXPECT_EQ(patch.data, test::Slice(head, 0, 4) + Text("mdat"));
}

TEST_F(Hmp4Packet, ReorderedPicturesAndPriming) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, -7200, 0, 3600);
    stream->Audio(Adts(ByteVector(10)), -1024, 1024);
    stream->Video(Inter(), MX_SUB_P, -3600, 10800, 3600);
    stream->Video(Inter(), MX_SUB_B, 0, 3600, 3600);
    stream->Audio(Adts(ByteVector(10)), 0, 1024);
    stream->Video(Inter(), MX_SUB_B, 3600, 7200, 3600);
    stream->Close();
    const IsoFile file(stream->File());
    EXPECT_EQ(file.Payload(IsoFile::Table(0, "ctts")),
              Bytes("00000000 00000003 00000001 00001C20 00000001 00003840 00000002 00000E10"));
    // Shown from 7200 on, for 14400 of 90000 (115200 of 720000); sound without its first 1024.
    EXPECT_EQ(Payload(file.Whole("moov/trak:0"), "elst", 20), Bytes("00000000 00000001 0001C200 00001C20 00010000"));
    EXPECT_EQ(Payload(file.Whole("moov/trak:1"), "elst", 20), Bytes("00000000 00000001 00003C00 00000400 00010000"));
}

TEST_F(Hmp4Packet, ATrackThatBeginsLaterIsHeldBackByAnEmptyEdit) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0, 3600);
    stream->Audio(Adts(ByteVector(10)), 4800, 1024);
    stream->Close();
    const IsoFile file(stream->File());
    EXPECT_EQ(Payload(file.Whole("moov/trak:1"), "elst", 32),
              Bytes("00000000 00000002 00011940 FFFFFFFF 00010000 00003C00 00000000 00010000"));  // 0.1 s
    EXPECT_EQ(file.Number("moov/mvhd", 16, 4), 72000u + 15360u);
}

// One of 48000 ticks is fifteen of the movie's 720000.
TEST_F(Hmp4Packet, ATickLaterIsLater) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0, 3600);
    stream->Audio(Adts(ByteVector(10)), 1, 1024);
    stream->Close();
    EXPECT_EQ(Payload(IsoFile(stream->File()).Whole("moov/trak:1"), "elst", 32),
              Bytes("00000000 00000002 0000000F FFFFFFFF 00010000 00003C00 00000000 00010000"));
}

TEST_F(Hmp4Packet, AFarBeginningIsMovedToZero) {
    VideoOnly();
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 1000000000000, 1000000000000, 3600);
    stream->Close();
    const IsoFile file(stream->File());
    EXPECT_EQ(file.Number("moov/trak:0/tkhd", 20, 4), 3600u);
}

// A gap or an overlap between fragments goes into the durations.
TEST_F(Hmp4Packet, DurationsFollowTheTrueTimes) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Audio(Adts(ByteVector(10)), 0, 1024);
    stream->Video(Key(), MX_SUB_I, 90000, 90000);
    stream->Audio(Adts(ByteVector(10)), 5000, 1024);
    stream->Close();
    using Runs = std::vector<std::pair<uint64_t, uint64_t>>;
    EXPECT_EQ(IsoFile(stream->File()).Runs(1), (Runs{{1, 5000}, {1, 1024}}));
}

TEST_F(Hmp4Packet, OtherParameterSetsAreAFurtherSampleEntryInBothIndexes) {
    VideoOnly();
    stream->Open();
    const ByteVector other = test::Units({test::BaselineSps(), test::BaselinePps(), Bytes("65 88 01")});
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Video(other, MX_SUB_I, 3600, 3600);
    stream->Video(Inter(), MX_SUB_P, 7200, 7200);
    stream->Video(Key(), MX_SUB_I, 10800, 10800);
    {
        const IsoFile file(stream->File());
        EXPECT_EQ(file.Layout(), "ftyp free moov free free moof mdat free moof mdat");
        EXPECT_EQ(file.Number(IsoFile::Table(0, "stsd"), 4, 4), 2u);
        // The second fragment names the second entry: tfhd with sample_description_index.
        const ByteVector second = file.Whole("moof:1");
        EXPECT_EQ(Payload(second, "tfhd", 12), Bytes("0002002A 00000001 00000002"));
    }
    stream->Close();
    const IsoFile file(stream->File());
    EXPECT_EQ(file.Layout(), "ftyp mdat moov");
    // A third one only if it is new: the first set came back.
    EXPECT_EQ(file.Number(IsoFile::Table(0, "stsd"), 4, 4), 2u);
    EXPECT_EQ(
        file.Payload(IsoFile::Table(0, "stsc")),
        Bytes("00000000 00000003 00000001 00000001 00000001 00000002 00000002 00000002 00000003 00000001 00000001"));
}

// More different ones than the room in front takes: it stays as it was, the fragments go on, and the tail has them all.
TEST_F(Hmp4Packet, SampleEntriesThatOutgrowTheFrontStandInTheIndex) {
    VideoOnly();
    stream->Open();
    constexpr uint32_t kSets = 200;
    for (uint32_t i = 0; i < kSets; ++i) {
        // Their last bytes, which tell them apart, lie behind what is read of them.
        const ByteVector pps = test::BaselinePps() + ByteVector{static_cast<uint8_t>(1 + i), 0x80};
        stream->Video(test::Units({test::BaselineSps(), pps, Bytes("65 88 01")}), MX_SUB_I, i * 3600, i * 3600, 3600);
    }
    const IsoFile growing(stream->File());
    const uint64_t in_front = growing.Number(IsoFile::Table(0, "stsd"), 4, 4);
    EXPECT_GT(in_front, 100u);
    EXPECT_LT(in_front, kSets);
    std::string layout = "ftyp free moov free";
    for (uint32_t i = 0; i + 1 < kSets; ++i)
        layout += " free moof mdat";
    EXPECT_EQ(growing.Layout(), layout);
    EXPECT_EQ(stream->Close(), 0u);
    const IsoFile file(stream->File());
    EXPECT_EQ(file.Layout(), "ftyp mdat moov");
    EXPECT_EQ(file.Number(IsoFile::Table(0, "stsd"), 4, 4), kSets);
    EXPECT_EQ(file.Sizes(0), std::vector<uint64_t>(kSets, 7));
}

TEST_F(Hmp4Packet, ATrackOfEmptyFramesHasNoSamples) {
    stream->Open();
    stream->Audio(Adts({}), 0, 1024);
    stream->Video(Key(), MX_SUB_I, 0, 0, 3600);
    EXPECT_EQ(stream->Close(), 0u);
    const IsoFile file(stream->File());
    EXPECT_EQ(file.Layout(), "ftyp mdat moov");
    EXPECT_EQ(file.Sizes(0), (std::vector<uint64_t>{26}));
    EXPECT_TRUE(file.Sizes(1).empty());
    EXPECT_EQ(file.Number("moov/trak:1/tkhd", 20, 4), 0u);
}

TEST_F(Hmp4Packet, WithoutAFrameThereIsNoFile) {
    stream->Open();
    EXPECT_EQ(stream->Close(), 0u);
    EXPECT_TRUE(stream->blocks.empty());
}

// The worst shape for the index: every frame a fragment, every duration another, every picture reordered.
TEST_F(Hmp4Packet, TheIndexTakesSixteenBytesASampleAtMost) {
    auto& package = static_cast<CHmp4Packet&>(*stream->package);
    package.setCallback([](const MXOutputBlock* block, void*) { return static_cast<int32_t>(block->length); }, nullptr);
    EXPECT_EQ(package.SetFragmentParam({sizeof(MXFragmentParam), MX_FRAGMENT_CHUNK, 0, MX_TRACKS_VIDEO, 0, 0}), 0u);
    stream->Open();
    ByteVector key = Key();
    MXFrameInfo frame = test::VideoFrame(key, MX_VIDEO_H264, MX_SUB_I);
    constexpr int64_t kFrames = 200000;
    for (int64_t i = 0; i < kFrames; ++i) {
        MXSetFrameTimes(&frame, 90000, i * 3600 + i % 7, i * 3600 + 100 + i % 11, 3600);
        ASSERT_EQ(package.inputFrame(&frame, 0), 0u);
    }
    EXPECT_LE(package.IndexCapacity(), static_cast<size_t>(kFrames) * 16 + 65536);
    EXPECT_GE(package.IndexCapacity(), static_cast<size_t>(kFrames) * 12);
    stream->Close();
}

// What guards the end and states the size is of no media: it has neither flags nor times.
TEST_F(Hmp4Packet, GuardsHaveNoTimes) {
    stream->Open();
    for (int i = 0; i < 3; ++i)
        stream->Video(Key(), MX_SUB_I, i * 90000, i * 90000, 90000);
    stream->Close();
    EXPECT_EQ(stream->blocks.at(0).note.flags & MX_BLOCK_KEY, 0u) << "the head holds no picture";
    size_t patches = 0;
    for (const ExactStream::Block& block : stream->blocks) {
        if (block.note.kind != MX_BLOCK_PATCH) continue;
        ++patches;
        EXPECT_EQ(block.note.flags, 0u);
        EXPECT_EQ(block.note.time_scale, 0u);
        EXPECT_EQ(block.note.reserved, 0u);
        EXPECT_EQ(block.note.dts, 0);
        EXPECT_EQ(block.note.duration, 0);
    }
    EXPECT_GE(patches, 3u);
}

}  // namespace
}  // namespace Orvane::Muxora
