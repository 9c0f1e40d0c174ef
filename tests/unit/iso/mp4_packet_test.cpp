#include "iso/mp4_packet.h"

#include <gtest/gtest.h>

#include "core/clock.h"
#include "mp4_recording.h"
#include "support/allocation_counter.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::IsoFile;
using test::operator+;
using Numbers = std::vector<uint64_t>;
using Samples = std::vector<ByteVector>;

constexpr uint32_t kFormats[] = {0, 6, 7, 12, 14, 15};
constexpr uint32_t kOneMdat[] = {0, 6, 7, 14, 15};

size_t FtypSize(uint32_t format) {
    return format == 6 || format == 15 ? 20 : 32;
}
size_t MdatHeader(uint32_t format) {
    return format == 14 || format == 15 ? 16 : 8;
}

TEST(Mp4Packet, AFileWithoutFrames) {
    for (const uint32_t format : kOneMdat) {
        Recording recording(format);
        const IsoFile file = recording.Finish();
        EXPECT_EQ(file.Layout(), "ftyp free mdat moov");
        EXPECT_EQ(file.Size("ftyp"), FtypSize(format));
        EXPECT_EQ(file.Size("free"), 8u);
        EXPECT_EQ(file.Size("mdat"), MdatHeader(format));
        EXPECT_EQ(file.Size("moov"), 116u);
        EXPECT_EQ(IsoFile::Types(file.At("moov").children), "mvhd");
    }
    Recording no_seek(12);
    EXPECT_EQ(no_seek.Finish().Layout(), "ftyp free moov");
}

TEST(Mp4Packet, TheHeadInItsBytes) {
    EXPECT_EQ(Recording(0).sink.file, Bytes("00 00 00 20") + test::Text("ftypisom") + Bytes("00 00 02 00") +
                                          test::Text("isomiso2avc1mp41") + Bytes("00 00 00 08") + test::Text("free") +
                                          Bytes("00 00 00 08") + test::Text("mdat"));
    EXPECT_EQ(Recording(15, 4).sink.file, Bytes("00 00 00 14") + test::Text("ftypqt  ") + Bytes("00 00 02 00") +
                                              test::Text("qt  ") + Bytes("00 00 00 0C") + test::Text("free") +
                                              Bytes("00 00 00 00  00 00 00 01") + test::Text("mdat") +
                                              Bytes("00 00 00 00 00 00 00 10"));
}

// The head, a block a frame, the index at the end, and the only step back: the header of mdat with its final size.
TEST(Mp4Packet, WhatEachOutputCallHolds) {
    for (const uint32_t format : kOneMdat) {
        Recording recording(format);
        recording.Key();
        recording.Audio(AdtsFrame(9, 0xA1));
        recording.Ext({7, 7, 7});
        const IsoFile file = recording.Finish();
        const auto head = static_cast<int64_t>(FtypSize(format) + 8 + MdatHeader(format));
        const int64_t offsets[] = {0,         head,      head + 32,
                                   head + 41, head + 44, static_cast<int64_t>(FtypSize(format)) + 8};
        const size_t sizes[] = {static_cast<size_t>(head), 32, 9, 3, file.Size("moov"), MdatHeader(format)};
        ASSERT_EQ(recording.sink.blocks.size(), 6u);
        for (size_t i = 0; i < 6; ++i) {
            EXPECT_EQ(recording.sink.blocks[i].offset, offsets[i]) << i;
            EXPECT_EQ(recording.sink.blocks[i].offset32, offsets[i]) << i;
            EXPECT_EQ(recording.sink.blocks[i].seek_type, 0u) << i;
            EXPECT_EQ(recording.sink.blocks[i].data.size(), sizes[i]) << i;
        }
        EXPECT_EQ(file.Size("mdat"), MdatHeader(format) + 44);
    }
}

TEST(Mp4Packet, ThreeGpIsMp4ToTheByte) {
    const ScopedClock clock(1700000000);
    ByteVector files[2];
    for (const uint32_t format : {0U, 7U}) {
        Recording recording(format, 64);
        recording.Key();
        recording.Audio(AdtsFrame(9));
        recording.Video(PFrame());
        files[format == 7] = recording.Finish().Bytes();
    }
    EXPECT_EQ(files[0], files[1]);
}

TEST(Mp4Packet, FormatsThatItDoesNotKnowAreMp4) {
    EXPECT_EQ(Recording(99).sink.file, Recording(0).sink.file);
}

TEST(Mp4Packet, VideoAndAudioInOneMdat) {
    for (const uint32_t format : kOneMdat) {
        Recording recording(format);
        EXPECT_EQ(recording.Key(), 0u);
        EXPECT_EQ(recording.Audio(AdtsFrame(9, 0xA1)), 0u);
        EXPECT_EQ(recording.Video(PFrame(1)), 0u);
        EXPECT_EQ(recording.Audio(AdtsFrame(11, 0xA2)), 0u);
        const IsoFile file = recording.Finish();
        EXPECT_EQ(file.Layout(), "ftyp free mdat moov");
        EXPECT_EQ(file.Payload("mdat"), KeySample() + ByteVector(9, 0xA1) + PSample(1) + ByteVector(11, 0xA2));
        EXPECT_EQ(file.Samples(0), (Samples{KeySample(), PSample(1)}));
        EXPECT_EQ(file.Samples(1), (Samples{ByteVector(9, 0xA1), ByteVector(11, 0xA2)}));
        const uint64_t first = FtypSize(format) + 8 + MdatHeader(format);
        EXPECT_EQ(file.Offsets(0), (Numbers{first, first + 32 + 9}));
        EXPECT_EQ(file.SyncSamples(0), Numbers{1});
        EXPECT_EQ(file.Has(IsoFile::Table(0, "co64")), format >= 14);
        EXPECT_EQ(file.Has("moov/trak:1/mdia/minf/stbl/stsd/mp4a/wave"), format == 6 || format == 15);
        EXPECT_EQ(file.Has("moov/trak:1/mdia/minf/stbl/stsd/mp4a/esds"), format != 6 && format != 15);
    }
}

TEST(Mp4Packet, WithoutSeekingEachSampleHasItsMdat) {
    Recording recording(12);
    recording.Key();
    recording.Audio(AdtsFrame(9, 0xA1));
    recording.Ext({7, 7, 7});
    recording.Video(PFrame(1));
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Layout(), "ftyp free mdat mdat mdat mdat moov");
    EXPECT_EQ(file.Offsets(0), (Numbers{32 + 8 + 8, 32 + 8 + 40 + 17 + 11 + 8}));
    EXPECT_EQ(file.Offsets(1), Numbers{32 + 8 + 40 + 8});
    EXPECT_EQ(file.Samples(0), (Samples{KeySample(), PSample(1)}));
    EXPECT_EQ(file.Payload("mdat:0"), KeySample());
    EXPECT_EQ(file.Payload("mdat:2"), (ByteVector{7, 7, 7}));
    // One block a frame, and no position that goes back.
    ASSERT_EQ(recording.sink.blocks.size(), 6u);
    int64_t end = 0;
    for (const auto& block : recording.sink.blocks) {
        EXPECT_EQ(block.offset, end);
        EXPECT_EQ(block.offset32, static_cast<uint32_t>(end));
        EXPECT_EQ(block.seek_type, 0u);
        end += static_cast<int64_t>(block.data.size());
    }
}

TEST(Mp4Packet, NothingGoesOutAheadOfTheFirstKeyFrame) {
    for (const uint32_t format : kFormats) {
        Recording recording(format);
        const size_t blocks = recording.sink.blocks.size();
        EXPECT_EQ(recording.Video(PFrame(), 1), 0u);
        EXPECT_EQ(recording.Audio(AdtsFrame(9)), 0u);
        EXPECT_EQ(recording.Ext({1, 2, 3}), 0u);
        EXPECT_EQ(recording.sink.blocks.size(), blocks);
        EXPECT_EQ(recording.Backup().Size("moov"), 116u);
        // Audio behind it opens its track.
        recording.Key();
        recording.Audio(AdtsFrame(9));
        EXPECT_EQ(recording.sink.blocks.size(), blocks + 2);
        EXPECT_EQ(recording.Finish().TrackCount(), 2u);
    }
}

TEST(Mp4Packet, WithoutVideoThereIsNoAudio) {
    Recording recording(0);
    for (int i = 0; i < 10; ++i)
        recording.Audio(AdtsFrame(9));
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Size("mdat"), 8u);
    EXPECT_EQ(file.TrackCount(), 0u);
}

TEST(Mp4Packet, EachOfTheFourKeyKindsOpensTheTrackButKind8IsNotInStss) {
    for (const uint32_t sub_type : {0U, 18U, 20U, 8U}) {
        Recording recording(0);
        recording.Video(KeyFrame(), sub_type);
        recording.Video(PFrame());
        const IsoFile file = recording.Finish();
        EXPECT_EQ(file.Sizes(0).size(), 2u) << sub_type;
        EXPECT_EQ(file.SyncSamples(0), sub_type == 8 ? Numbers{} : Numbers{1}) << sub_type;
    }
    for (const uint32_t sub_type : {1U, 2U, 3U, 19U, 7U, 255U}) {
        Recording recording(0);
        recording.Video(KeyFrame(), sub_type);
        EXPECT_EQ(recording.Finish().TrackCount(), 0u) << sub_type;
    }
}

TEST(Mp4Packet, H264WithoutAStartCodeIsDroppedButOpensTheTrack) {
    Recording recording(0);
    EXPECT_EQ(recording.Video(ByteVector(100, 0x65), 0), 0u);
    EXPECT_EQ(recording.sink.blocks.size(), 1u);
    EXPECT_EQ(recording.Video(PFrame(1)), 0u);
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Payload("moov/trak/mdia/minf/stbl/stsd/avc1/avcC"), Bytes("01 4D 40 1E FF E0 00 00 00 00 00"));
    EXPECT_EQ(file.Samples(0), Samples{PSample(1)});
    EXPECT_TRUE(file.SyncSamples(0).empty());
}

TEST(Mp4Packet, TheFirstFrameAloneWithNothingInItMakesATrackWithoutSamples) {
    Recording recording(14);
    recording.Video(ByteVector(100, 0x65), 0);
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Runs(0), (std::vector<std::pair<uint64_t, uint64_t>>{{0, 40}}));
    EXPECT_TRUE(file.Samples(0).empty());
}

TEST(Mp4Packet, FramesOfOneToThreeBytesAreDropped) {
    Recording recording(0);
    recording.Key();
    const size_t blocks = recording.sink.blocks.size();
    for (const ByteVector& tiny : {ByteVector{0}, ByteVector{0, 0}, ByteVector{0, 0, 1}})
        EXPECT_EQ(recording.Video(tiny), 0u);
    EXPECT_EQ(recording.sink.blocks.size(), blocks);
    EXPECT_EQ(recording.Finish().Sizes(0).size(), 1u);
}

TEST(Mp4Packet, OfTwoAudioChannelsTheFirstOneIsInTheFile) {
    Recording recording(0);
    recording.Key();
    for (uint8_t i = 0; i < 4; ++i) {
        EXPECT_EQ(recording.Audio(AdtsFrame(5, i), 26, 3), 0u);
        EXPECT_EQ(recording.Audio(AdtsFrame(6, i), 26, 1), 0u);
    }
    EXPECT_EQ(recording.Finish().Sizes(1), (Numbers{5, 5, 5, 5}));
}

TEST(Mp4Packet, FramesOfAnotherCodecVanishAndThoseOfTheFirstGoOn) {
    Recording recording(0);
    recording.Key();
    EXPECT_EQ(recording.Video(KeyFrame(), 0, 4), 0u);
    EXPECT_EQ(recording.Video(Bytes("FF D8 FF D9"), 0, 3), 0u);
    EXPECT_EQ(recording.Video(PFrame(1)), 0u);
    recording.Audio(AdtsFrame(5));
    EXPECT_EQ(recording.Audio(ByteVector(50, 9), 31), 0u);
    recording.Audio(AdtsFrame(5));
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Samples(0), (Samples{KeySample(), PSample(1)}));
    EXPECT_EQ(file.Sizes(1), (Numbers{5, 5}));
}

TEST(Mp4Packet, OfTwoAdtsFramesInOneBufferTheFirstIsInTheFile) {
    for (const uint32_t format : kFormats) {
        Recording recording(format);
        recording.Key();
        recording.Audio(AdtsFrame(9, 0xA1) + AdtsFrame(11, 0xA2));
        recording.Audio(AdtsFrame(4, 0xA3));
        const IsoFile file = recording.Finish();
        EXPECT_EQ(file.Samples(1), (Samples{ByteVector(9, 0xA1), ByteVector(4, 0xA3)}));
        EXPECT_EQ(file.Bytes().size(), file.At("moov").end);
    }
}

TEST(Mp4Packet, AdtsWithACrcIsKeptWhole) {
    Recording recording(0);
    recording.Key();
    ByteVector frame = AdtsFrame(9);
    frame[1] = 0xF0;
    recording.Audio(frame);
    EXPECT_EQ(recording.Finish().Samples(1), Samples{frame});
}

TEST(Mp4Packet, MpegAudioCountsBy1152) {
    Recording recording(0);
    recording.Key();
    recording.Audio(ByteVector(417, 0x11), 31);
    recording.Audio(ByteVector(418, 0x12), 31);
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Runs(1), (std::vector<std::pair<uint64_t, uint64_t>>{{2, 1152}}));
    EXPECT_EQ(file.Sizes(1), (Numbers{417, 418}));
}

TEST(Mp4Packet, PrivateDataLiesInMdatWithNoTable) {
    for (const uint32_t format : kOneMdat) {
        Recording recording(format);
        recording.Key();
        EXPECT_EQ(recording.Ext(ByteVector(33, 0xEE)), 0u);
        EXPECT_EQ(recording.Ext(ByteVector(2, 0xEF)), 0u);
        recording.Video(PFrame(1));
        const IsoFile file = recording.Finish();
        EXPECT_EQ(file.Size("mdat"), MdatHeader(format) + 32 + 35 + 10);
        EXPECT_EQ(file.TrackCount(), 1u);
        EXPECT_EQ(file.Samples(0), (Samples{KeySample(), PSample(1)}));
        EXPECT_EQ(file.Number("moov/mvhd", 96, 4), 2u);
    }
}

TEST(Mp4Packet, H265StartCodesBecomeLengths) {
    for (const uint32_t format : kFormats) {
        Recording recording(format);
        recording.Video(Bytes("00 00 00 01 40 01 0C  00 00 01 26 01 AF 15"), 0, 12);
        recording.Video(Bytes("00 00 01 02 01 D0"), 1, 12);
        EXPECT_EQ(recording.Finish().Samples(0),
                  (Samples{Bytes("00 00 00 03 40 01 0C  00 00 00 04 26 01 AF 15"), Bytes("00 00 00 03 02 01 D0")}));
    }
}

TEST(Mp4Packet, MotionJpegAndMpeg4AreCopiedAsTheyAre) {
    for (const uint32_t codec : {1U, 3U}) {
        Recording recording(0);
        const ByteVector first = Bytes("00 00 01 B0 01 00 00 01 B6 11 22 33 44 55");
        const ByteVector second = Bytes("00 00 01 B6 77 88");
        recording.Video(first, 0, codec);
        recording.Video(second, 1, codec);
        EXPECT_EQ(recording.Finish().Samples(0), (Samples{first, second}));
    }
}

TEST(Mp4Packet, AFrameRateOf0IsTakenFor25) {
    Recording recording(0);
    recording.Video(KeyFrame(), 0, 2, 0);
    recording.Video(PFrame(), 1, 2, 0);
    EXPECT_EQ(recording.Finish().Runs(0), (std::vector<std::pair<uint64_t, uint64_t>>{{2, 40}}));
}

TEST(Mp4Packet, ALaterFrameRateOf0KeepsTheOneBefore) {
    Recording recording(0);
    recording.Video(KeyFrame(), 0, 2, 50);
    recording.Video(PFrame(), 1, 2, 0);
    EXPECT_EQ(recording.Finish().Runs(0), (std::vector<std::pair<uint64_t, uint64_t>>{{2, 20}}));
}

// --- the reserved gap

// The size of the index that these tests record: one key frame.
uint32_t MoovSize() {
    Recording recording(0);
    recording.Key();
    return static_cast<uint32_t>(recording.Finish().Size("moov"));
}

TEST(Gap, TheIndexGoesIntoItWhenItFits) {
    // 600 + 8 n: 300 samples give an index of 3014 bytes, for which a payload of 1082 remains.
    Recording recording(0, 4096);
    recording.Key();
    for (int i = 1; i < 300; ++i)
        recording.Video(PFrame());
    const size_t before = recording.sink.blocks.size();
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Layout(), "ftyp free moov mdat");
    EXPECT_EQ(file.Size("moov"), 116u + 482 + 8 + 4 + 4 + 8 * 300);
    EXPECT_EQ(file.Size("free") + file.Size("moov"), 8u + 4096);
    EXPECT_EQ(file.At("free").begin, 32u);
    EXPECT_EQ(file.At("mdat").begin, 32u + 8 + 4096);
    EXPECT_EQ(file.Samples(0).size(), 300u);
    EXPECT_EQ(file.Samples(0)[0], KeySample());
    // free and moov in one block, then the header of mdat.
    ASSERT_EQ(recording.sink.blocks.size(), before + 2);
    EXPECT_EQ(recording.sink.blocks[before].offset, 32);
    EXPECT_EQ(recording.sink.blocks[before].data.size(), 8u + 4096);
    EXPECT_EQ(recording.sink.blocks[before + 1].offset, 32 + 8 + 4096);
    EXPECT_EQ(recording.sink.blocks[before + 1].data, Bytes("00 00 0B D6") + test::Text("mdat"));
}

// A gap of 4096 and an index of 3000 bytes: 1096 bytes remain as the payload of free, 1104 with its header.
TEST(Gap, Of4096ForAnIndexOf3000Leaves1096) {
    // 116 + 482 + 21 + 9 of parameter sets, 4 for the sync sample, 8 a sample: 296 samples.
    const ByteVector key = Bytes("00 00 00 01 67 64 00 28") + ByteVector(17, 0xFF) + Bytes("00 00 00 01 68") +
                           ByteVector(8, 0xEE) + Bytes("00 00 00 01 65 88 84");
    Recording recording(0, 4096);
    recording.Video(key, 0);
    for (int i = 1; i < 296; ++i)
        recording.Video(PFrame());
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Size("moov"), 3000u);
    EXPECT_EQ(file.Size("free"), 1104u);
    EXPECT_EQ(file.Payload("free"), ByteVector(1096));
    EXPECT_EQ(file.At("moov").begin, 32u + 1104);
}

TEST(Gap, OneByteShortOfTheIndexItStaysAndTheIndexGoesToTheEnd) {
    const uint32_t need = MoovSize();
    Recording recording(0, need - 1);
    recording.Key();
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Layout(), "ftyp free mdat moov");
    EXPECT_EQ(file.Size("free"), 8u + need - 1);
    EXPECT_EQ(file.Payload("free"), ByteVector(need - 1));
}

TEST(Gap, OneByteMoreThanTheIndexLeavesAFreeOf9) {
    const uint32_t need = MoovSize();
    Recording recording(0, need + 1);
    recording.Key();
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Layout(), "ftyp free moov mdat");
    EXPECT_EQ(file.Size("free"), 9u);
}

TEST(Gap, OnAnExactFitFreeClaimsTheIndexToo) {
    const uint32_t need = MoovSize();
    Recording recording(0, need);
    recording.Key();
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Layout(), "ftyp free mdat");
    EXPECT_EQ(file.Size("free"), 8u + need);
    const IsoFile inside(file.Payload("free"));
    EXPECT_EQ(inside.Layout(), "moov");
    EXPECT_EQ(inside.Size("moov"), need);
}

TEST(Gap, EvenWithoutSeekingAFittingIndexGoesBack) {
    Recording recording(12, 4096);
    recording.Key();
    recording.Video(PFrame(1));
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Layout(), "ftyp free moov mdat mdat");
    EXPECT_EQ(recording.sink.blocks.back().offset, 32);
    EXPECT_EQ(file.Samples(0), (Samples{KeySample(), PSample(1)}));
}

TEST(Gap, InEveryForm) {
    for (const uint32_t format : kOneMdat) {
        Recording recording(format, 5000);
        recording.Key();
        recording.Audio(AdtsFrame(9, 0xA1));
        const IsoFile file = recording.Finish();
        EXPECT_EQ(file.Layout(), "ftyp free moov mdat");
        EXPECT_EQ(file.Samples(0), Samples{KeySample()});
        EXPECT_EQ(file.Samples(1), Samples{ByteVector(9, 0xA1)});
    }
}

TEST(Gap, BeyondAllMemoryIsRefusedAndNothingGoesOut) {
    for (const uint32_t gap : {0xFFFFFFFFU, 0xFFFFFFF8U, 0x7FFFFFF0U}) {
        test::Sink sink;
        const MXCreateParam param = sink.Param();
        CMp4Packet packet(0, &param);
        packet.init();
        MXHeaderInfo header{};
        header.reserved_gap = gap;
        const test::FailingAllocations no_memory(8);
        EXPECT_NE(packet.createHeader(&header, 0), 0u);
        EXPECT_TRUE(sink.blocks.empty());
    }
}

// --- order of calls and arguments

TEST(Mp4Packet, RefusesWhatItMust) {
    Recording recording(0);
    ByteVector data = KeyFrame();
    MXFrameInfo frame = test::VideoFrame(data, 2, 0);
    EXPECT_EQ(recording.packet.inputFrame(nullptr, 0), 3u);
    frame.frame_size = 0;
    EXPECT_EQ(recording.packet.inputFrame(&frame, 0), 3u);
    frame.frame_size = 9;
    frame.frame_pointer = nullptr;
    EXPECT_EQ(recording.packet.inputFrame(&frame, 0), 3u);
    for (const uint32_t codec : {0U, 5U, 8U, 9U, 11U, 35U, 129U})
        EXPECT_EQ(recording.Video(data, 0, codec), 5u) << codec;
    for (const uint32_t codec : {0U, 7U, 14U, 16U, 22U, 27U, 34U})
        EXPECT_EQ(recording.Audio(data, codec), 5u) << codec;
    MXFrameInfo other = test::Frame(data, 4, 2);
    EXPECT_EQ(recording.packet.inputFrame(&other, 0), 5u);
    other.frame_type = 0;
    EXPECT_EQ(recording.packet.inputFrame(&other, 0), 5u);
    EXPECT_EQ(recording.sink.blocks.size(), 1u);
}

TEST(Mp4Packet, BeforeInitAndAfterUninitThereIsNoTree) {
    test::Sink sink;
    const MXCreateParam param = sink.Param();
    CMp4Packet packet(0, &param);
    ByteVector data = KeyFrame();
    MXFrameInfo frame = test::VideoFrame(data, 2, 0);
    MXOutputBlock block{};
    block.length = 77;
    const auto check = [&] {
        const size_t blocks = sink.blocks.size();
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
        MXFrameInfo audio = test::AudioFrame(data, 26);
        EXPECT_EQ(packet.inputFrame(&audio, 0), 0u);
        MXFrameInfo ext = test::Frame(data, 3, 0);
        EXPECT_EQ(packet.inputFrame(&ext, 0), 0u);
        EXPECT_EQ(packet.createTailer(nullptr, 0), 3u);
        EXPECT_EQ(packet.createHeader(nullptr, 0), 3u);
        EXPECT_EQ(packet.getBackup(&block), 0u);
        EXPECT_EQ(block.length, 77u);
        EXPECT_EQ(sink.blocks.size(), blocks);
    };
    check();
    packet.init();
    EXPECT_EQ(packet.createHeader(nullptr, 0), 0u);
    EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);
    EXPECT_EQ(packet.uninit(), 0u);
    check();
    EXPECT_EQ(packet.uninit(), 0u);
}

TEST(Mp4Packet, AfterUninitTracksBeginAnewButThePositionAndPrivateDataGoOn) {
    Recording recording(0);
    recording.Key();
    recording.Audio(AdtsFrame(9));
    recording.Ext({7, 7, 7});
    recording.Finish();
    const auto end = static_cast<int64_t>(recording.sink.file.size());
    recording.packet.uninit();
    recording.packet.init();
    recording.packet.createHeader(nullptr, 0);
    EXPECT_EQ(recording.sink.blocks.back().offset, end);
    const size_t blocks = recording.sink.blocks.size();
    recording.Video(PFrame());
    recording.Audio(AdtsFrame(9));
    EXPECT_EQ(recording.sink.blocks.size(), blocks);
    // Private data has begun, and does not wait for a key frame again.
    recording.Ext({7, 7, 7});
    EXPECT_EQ(recording.sink.blocks.size(), blocks + 1);
    recording.Key();
    recording.Audio(AdtsFrame(5), 26, 1);
    EXPECT_EQ(recording.Backup().Offsets(0), Numbers{static_cast<uint64_t>(end) + 48 + 3});
    EXPECT_EQ(recording.Backup().Sizes(1), Numbers{5});
}

TEST(Mp4Packet, ACallbackThatTakesLessMovesWhatFollows) {
    Recording recording(0);
    recording.sink.accept = {-1, 5};
    recording.Key();
    recording.Video(PFrame(1));
    EXPECT_EQ(recording.sink.blocks[2].offset, 48 + 5);
    EXPECT_EQ(recording.Backup().Offsets(0), (Numbers{48, 53}));
}

TEST(Mp4Packet, Capacity) {
    const CMp4Packet packet(0);
    const auto codecs = [](const void* table, uint32_t count) {
        std::vector<uint32_t> out;
        for (uint32_t i = 0; i < count; ++i) {
            const MXCapacityEntry& entry = static_cast<const MXCapacityEntry*>(table)[i];
            out.push_back(entry.codec);
            EXPECT_EQ(entry.samples_per_sec | entry.bits_per_sample | entry.channels | entry.reserved[0], 0u);
        }
        return out;
    };
    const void* table = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(packet.getEncodeCapacity(0, &table, &count), 0u);
    EXPECT_EQ(codecs(table, count), (std::vector<uint32_t>{4, 1, 12, 3}));
    EXPECT_EQ(packet.getEncodeCapacity(1, &table, &count), 0u);
    EXPECT_EQ(codecs(table, count), (std::vector<uint32_t>{26, 31}));
    EXPECT_EQ(packet.getCodecCapacity(0, &table, &count), 0u);
    EXPECT_EQ(codecs(table, count), (std::vector<uint32_t>{2, 1, 5, 3}));
    EXPECT_EQ(packet.getCodecCapacity(1, &table, &count), 0u);
    EXPECT_EQ(codecs(table, count), (std::vector<uint32_t>{33, 38}));
    EXPECT_EQ(packet.getCodecCapacity(2, &table, &count), 3u);
    EXPECT_EQ(packet.getEncodeCapacity(0, nullptr, &count), 3u);
}

TEST(Mp4Packet, ATailWithoutMemoryWritesNoIndex) {
    Recording recording(0);
    recording.Key();
    for (int i = 0; i < 3000; ++i)
        recording.Video(PFrame());
    const size_t blocks = recording.sink.blocks.size();
    {
        const test::FailingAllocations no_memory;
        EXPECT_NE(recording.packet.createTailer(nullptr, 0), 0u);
    }
    EXPECT_EQ(recording.sink.blocks.size(), blocks);
    EXPECT_EQ(recording.Finish().Samples(0).size(), 3001u);
}

}  // namespace
}  // namespace Orvane::Muxora
