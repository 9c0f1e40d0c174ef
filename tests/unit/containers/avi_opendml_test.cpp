// AVI files past 1 GiB. The sink keeps what a reader of the structure needs and a hash in the place of each frame, so
// that files of several GiB take seconds.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <string_view>

#include "containers/avi_packet.h"
#include "support/allocation_counter.h"
#include "support/frames.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::Slice;
using test::Text;
using test::operator+;

size_t Hash(const void* data, size_t length) {
    return std::hash<std::string_view>{}({static_cast<const char*>(data), length});
}

uint64_t LittleEndian(const ByteVector& bytes, size_t at, size_t width) {
    uint64_t value = 0;
    for (size_t i = width; i-- > 0;)
        value = value << 8 | bytes.at(at + i);
    return value;
}
uint32_t Le32(const ByteVector& bytes, size_t at) {
    return static_cast<uint32_t>(LittleEndian(bytes, at, 4));
}
std::string FourCC(const ByteVector& bytes, size_t at) {
    const ByteVector four = Slice(bytes, at, 4);
    return {four.begin(), four.end()};
}

// The chunk of a frame: its header as it stands in the file, and a hash of the data.
struct FrameChunk {
    std::string id;
    uint32_t length = 0;
    uint32_t pad = 0;
    size_t hash = 0;

    bool operator==(const FrameChunk&) const = default;
};

class StructureSink {
  public:
    static int32_t Output(const MXOutputBlock* block, void* user) {
        static_cast<StructureSink*>(user)->Take(*block);
        return 0;
    }

    std::map<uint64_t, FrameChunk> frames;
    std::map<uint64_t, ByteVector> blocks;  // all other blocks, whole
    uint64_t end = 0;

    // The block that covers the place, from there on.
    ByteVector At(uint64_t position) const {
        auto after = blocks.upper_bound(position);
        if (after == blocks.begin()) throw std::out_of_range("no block there");
        const auto& [start, bytes] = *std::prev(after);
        return Slice(bytes, static_cast<size_t>(position - start),
                     bytes.size() - static_cast<size_t>(position - start));
    }

  private:
    void Take(const MXOutputBlock& block) {
        const auto* bytes = static_cast<const uint8_t*>(block.data);
        const auto at = static_cast<uint64_t>(block.offset);
        const ByteVector head(bytes, bytes + std::min(block.length, 8u));
        if (block.length >= 8 && (FourCC(head, 0) == "00dc" || FourCC(head, 0) == "01wb")) {
            const uint32_t length = Le32(head, 4);
            // The head of an AVIX is written when it ends; its first frame leaves the place.
            ASSERT_TRUE(at == end || at == end + 24) << at << " behind " << end;
            ASSERT_TRUE(block.length == 8 + length + (length & 1));
            frames[at] = {FourCC(head, 0), length, length & 1, Hash(bytes + 8, length)};
        } else {
            blocks[at] = {bytes, bytes + block.length};
        }
        end = std::max(end, at + block.length);
    }
};

// What a reader finds by walking the file.
struct Walk {
    struct Riff {
        uint64_t at;
        uint32_t size;
        std::string type;
        std::vector<uint64_t> frames;
    };
    std::vector<Riff> riffs;
    std::vector<std::pair<std::string, FrameChunk>> frames;  // in file order; the kind of RIFF beside them
};

class AviOpenDml : public testing::Test {
  protected:
    AviOpenDml() { packet.createHeader(nullptr, 0); }

    // Gives a frame of `length` bytes of its own kind and keeps what the file should have.
    void Give(uint32_t frame_type, uint32_t length, uint32_t sub_type) {
        const bool video = frame_type == MX_FRAME_VIDEO;
        std::memcpy(pool.data(), &count, sizeof count);
        ++count;
        MXFrameInfo frame =
            video ? test::VideoFrame(pool, MX_VIDEO_H264, sub_type) : test::AudioFrame(pool, MX_AUDIO_ALAW);
        frame.frame_size = length;
        ASSERT_EQ(packet.inputFrame(&frame, 0), 0u);
        expected.push_back({video ? "00dc" : "01wb", length, length & 1, Hash(pool.data(), length)});
        sub_types.push_back(sub_type);
    }

    // The chunks of a movi list from `at` to `to`, frames and indexes, each behind the other.
    void WalkMovi(uint64_t at, uint64_t to, Walk::Riff& riff, std::vector<std::string>& indexes) {
        while (at < to) {
            if (const auto frame = sink.frames.find(at); frame != sink.frames.end()) {
                riff.frames.push_back(at);
                at += 8 + frame->second.length + frame->second.pad;
                continue;
            }
            const ByteVector chunk = sink.At(at);
            indexes.push_back(FourCC(chunk, 0));
            at += 8 + Le32(chunk, 4);
        }
        EXPECT_EQ(at, to);
    }

    // Checks one super index against the frames of its stream, and gives the sum of its durations.
    uint32_t CheckSuperIndex(const ByteVector& block, const std::string& id, const std::string& index_id) {
        EXPECT_EQ(FourCC(block, 0), "indx");
        EXPECT_EQ(Le32(block, 4), 1024u);
        EXPECT_EQ(Slice(block, 8, 4), Bytes("04 00 00 00"));
        EXPECT_EQ(FourCC(block, 16), id);
        EXPECT_EQ(Slice(block, 20, 12), ByteVector(12));
        const uint32_t entries = Le32(block, 12);
        EXPECT_LE(entries, 62u);
        std::vector<FrameChunk> found;
        uint32_t total = 0;
        for (uint32_t i = 0; i < entries; ++i) {
            const size_t entry = 32 + 16 * i;
            const uint64_t position = LittleEndian(block, entry, 8);
            const uint32_t size = Le32(block, entry + 8);
            const uint32_t duration = Le32(block, entry + 12);
            const ByteVector index = sink.At(position);
            EXPECT_EQ(index.size(), size);
            EXPECT_EQ(FourCC(index, 0), index_id);
            EXPECT_EQ(Le32(index, 4), size - 8);
            EXPECT_EQ(Slice(index, 8, 4), Bytes("02 00 00 01"));
            EXPECT_EQ(Le32(index, 12), duration);
            EXPECT_EQ(FourCC(index, 16), id);
            const uint64_t base = LittleEndian(index, 20, 8);
            EXPECT_EQ(Le32(index, 28), 0u);
            for (uint32_t j = 0; j < duration; ++j) {
                const uint64_t data = base + Le32(index, 32 + 8 * j);
                const auto frame = sink.frames.find(data - 8);
                if (frame == sink.frames.end()) {
                    ADD_FAILURE() << "entry " << j << " of index " << i << " leads nowhere";
                    return 0;
                }
                EXPECT_EQ(frame->second.length, Le32(index, 36 + 8 * j) & 0x7FFFFFFF);
                found.push_back(frame->second);
                delta_bits[id].push_back(Le32(index, 36 + 8 * j) >> 31 != 0);
            }
            total += duration;
        }
        std::vector<FrameChunk> wanted;
        for (const FrameChunk& chunk : expected) {
            if (chunk.id == id) wanted.push_back(chunk);
        }
        EXPECT_TRUE(found == wanted) << id << ": " << found.size() << " of " << wanted.size();
        return total;
    }

    StructureSink sink;
    MXCreateParam param = [this] {
        MXCreateParam made{};
        made.user = &sink;
        made.output = StructureSink::Output;
        return made;
    }();
    CAviPacket packet{MX_FORMAT_AVI, &param};
    ByteVector pool = ByteVector(600000, 0x3C);
    uint64_t count = 0;
    std::vector<FrameChunk> expected;
    std::vector<uint32_t> sub_types;
    std::map<std::string, std::vector<bool>> delta_bits;
};

TEST_F(AviOpenDml, AFileOfMoreThanTwoGibibytesWalksToEveryFrame) {
    // 2.3 GiB: a full first RIFF, a full AVIX and a begun one.
    for (uint32_t i = 0; sink.end < 2469606195u; ++i) {
        Give(MX_FRAME_VIDEO, 300000 + i % 7 * 1001, i % 25 == 0 ? MX_SUB_I : i % 3 == 0 ? MX_SUB_B : MX_SUB_P);
        if (i % 2 == 0) Give(MX_FRAME_AUDIO, 640 + i % 5, 0);
    }
    EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);

    // The chain of RIFFs. All sizes of RIFFs count their own header, so they lead straight to the next one.
    std::vector<Walk::Riff> riffs;
    std::vector<std::vector<std::string>> indexes;
    for (uint64_t at = 0; at < sink.end;) {
        const ByteVector head = sink.At(at);
        ASSERT_EQ(FourCC(head, 0), "RIFF");
        Walk::Riff riff{at, Le32(head, 4), FourCC(head, 8), {}};
        indexes.emplace_back();
        if (at == 0) {
            const ByteVector movi = sink.At(4116);
            ASSERT_EQ(FourCC(movi, 0) + FourCC(movi, 8), "LISTmovi");
            const uint64_t end = 4124 + uint64_t{Le32(movi, 4)};
            WalkMovi(4128, end, riff, indexes.back());
            const ByteVector idx1 = sink.At(end);
            EXPECT_EQ(FourCC(idx1, 0), "idx1");
            EXPECT_EQ(Le32(idx1, 4), 16 * riff.frames.size());
            EXPECT_EQ(end + 8 + Le32(idx1, 4), riff.size);
            for (size_t i = 0; i < riff.frames.size(); ++i) {
                const FrameChunk& frame = sink.frames.at(riff.frames[i]);
                EXPECT_EQ(FourCC(idx1, 8 + 16 * i), frame.id);
                EXPECT_EQ(4124 + Le32(idx1, 16 + 16 * i), riff.frames[i]);
                EXPECT_EQ(Le32(idx1, 20 + 16 * i), frame.length);
                const bool key = frame.id == "01wb" || sub_types[i] == 0;
                EXPECT_EQ(Le32(idx1, 12 + 16 * i), key ? 16u : 0u);
            }
        } else {
            ASSERT_EQ(FourCC(head, 12) + FourCC(head, 20), "LISTmovi");
            // The list counts its own header too.
            EXPECT_EQ(Le32(head, 16), riff.size - 12);
            WalkMovi(at + 24, at + riff.size, riff, indexes.back());
        }
        at += riff.size;
        EXPECT_LE(at, sink.end);
        riffs.push_back(riff);
    }
    ASSERT_EQ(riffs.size(), 3u);
    EXPECT_EQ(riffs[0].type, "AVI ");
    EXPECT_EQ(riffs[1].type, "AVIX");
    EXPECT_EQ(riffs[2].type, "AVIX");
    EXPECT_EQ(riffs[2].at + riffs[2].size, sink.end);
    EXPECT_GT(riffs[0].size, 0x40000000u);
    EXPECT_GT(riffs[1].size, 0x40000000u);
    EXPECT_LT(riffs[2].size, 0x40000000u);
    // A RIFF ends with the frame that takes it past 1 GiB.
    EXPECT_LE(riffs[0].frames.back(), 0x40000000u);
    EXPECT_LE(riffs[1].frames.back() - riffs[1].at, 0x40000000u);

    // The AVIX that ended by its size has its indexes twice.
    using Names = std::vector<std::string>;
    EXPECT_EQ(indexes[0], (Names{"ix00", "ix01"}));
    EXPECT_EQ(indexes[1], (Names{"ix00", "ix01", "ix00", "ix01"}));
    EXPECT_EQ(indexes[2], (Names{"ix00", "ix01"}));

    // Each frame that was given stands in the file, in order.
    std::vector<FrameChunk> walked;
    for (const Walk::Riff& riff : riffs) {
        for (const uint64_t at : riff.frames)
            walked.push_back(sink.frames.at(at));
    }
    EXPECT_TRUE(walked == expected) << walked.size() << " of " << expected.size();

    // The header list and its super indexes.
    const ByteVector list = sink.At(12);
    ASSERT_EQ(list.size(), 4104u);
    const auto video_frames = static_cast<uint32_t>(
        std::count_if(expected.begin(), expected.end(), [](const FrameChunk& chunk) { return chunk.id == "00dc"; }));
    EXPECT_EQ(Le32(list, 12 + 24), video_frames);  // dwTotalFrames
    EXPECT_EQ(CheckSuperIndex(Slice(list, 76 + 124, 1032), "00dc", "ix00"), video_frames);
    EXPECT_EQ(CheckSuperIndex(Slice(list, 76 + 1156 + 102, 1032), "01wb", "ix01"), expected.size() - video_frames);
    std::vector<bool> predicted;
    for (size_t i = 0; i < expected.size(); ++i) {
        if (expected[i].id == "00dc") predicted.push_back(sub_types[i] == 1);
    }
    EXPECT_EQ(delta_bits["00dc"], predicted);
    EXPECT_EQ(delta_bits["01wb"], std::vector<bool>(expected.size() - video_frames, false));

    const size_t odml = 76 + 1156 + 1134;
    EXPECT_EQ(Slice(list, odml, 20), Text("odml") + Bytes("04 01 00 00") + Text("odmldmlh") + Bytes("F8 00 00 00"));
    EXPECT_EQ(Le32(list, odml + 20), video_frames);
    EXPECT_EQ(Slice(list, odml + 24, 244), ByteVector(244));
    // 4020 - 1156 - 1134 - 268
    EXPECT_EQ(Slice(list, odml + 268, 8), Text("JUNK") + Bytes("B6 05 00 00"));
}

// Frames of 8 by 128 MiB: the RIFF size can be set to the byte.
class AviLimit : public testing::Test {
  protected:
    AviLimit() {
        packet.createHeader(nullptr, 0);
        for (int i = 0; i < 7; ++i)
            EXPECT_EQ(Give(kBlock), 0u);
    }
    uint32_t Give(uint32_t length, uint32_t frame_type = MX_FRAME_VIDEO) {
        MXFrameInfo frame = frame_type == MX_FRAME_VIDEO ? test::VideoFrame(pool, MX_VIDEO_H264, MX_SUB_I)
                                                         : test::AudioFrame(pool, MX_AUDIO_ALAW);
        frame.frame_size = length;
        return MX_InputFrame(&static_cast<CPackage&>(packet), &frame);
    }
    uint64_t LastAt() const { return sink.frames.rbegin()->first; }

    static constexpr uint32_t kBlock = 0x8000000 - 8;
    // What is left to 0x40000000 behind 4128 bytes of head and 7 chunks.
    static constexpr uint32_t kRest = 0x8000000 - 4128 - 8;

    StructureSink sink;
    MXCreateParam param = [this] {
        MXCreateParam made{};
        made.user = &sink;
        made.output = StructureSink::Output;
        return made;
    }();
    CAviPacket packet{MX_FORMAT_AVI, &param};
    ByteVector pool = ByteVector(kBlock);
};

TEST_F(AviLimit, ARiffOfExactlyOneGibibyteGoesOn) {
    EXPECT_EQ(Give(kRest), 0u);
    EXPECT_EQ(sink.end, 0x40000000u);
    packet.createTailer(nullptr, 0);
    EXPECT_EQ(FourCC(sink.At(0x40000000), 0), "idx1");
    const ByteVector list = sink.At(12);
    EXPECT_EQ(FourCC(list, 76 + 124), "JUNK");
    EXPECT_EQ(FourCC(list, 76 + 1156), "JUNK");  // no odml
    // dwMaxBytesPerSec: 1073737632 bytes times 25 in 32 bits, over 8 frames.
    EXPECT_EQ(Le32(list, 24), 134204628u);
    EXPECT_EQ(Le32(sink.At(0), 4), 0x40000000u + 8 + 16 * 8);
    EXPECT_EQ(Le32(sink.At(4116), 4), 0x40000000u - 4124);
}

TEST_F(AviLimit, TheFrameThatPassesOneGibibyteStaysAndTheNextBeginsAvix) {
    EXPECT_EQ(Give(kRest + 2), 0u);
    EXPECT_EQ(LastAt(), 0x38000000u + 4128);
    // ix00 of 8 entries, ix01 of none, idx1 of 8.
    const uint64_t end = 0x40000002;
    EXPECT_EQ(sink.At(end).size(), 32u + 8 * 8);
    EXPECT_EQ(sink.At(end + 96), Text("ix01") + Bytes("18 00 00 00  02 00 00 01  00 00 00 00") + Text("01wb") +
                                     Bytes("1C 10 00 00 00 00 00 00  00 00 00 00"));
    EXPECT_EQ(FourCC(sink.At(end + 128), 0), "idx1");
    EXPECT_EQ(Le32(sink.At(0), 4), end + 128 + 8 + 8 * 16);
    EXPECT_EQ(Le32(sink.At(4116), 4), end + 128 - 4124);

    EXPECT_EQ(Give(100), 0u);
    const uint64_t avix = end + 128 + 136;
    EXPECT_EQ(LastAt(), avix + 24);
    packet.createTailer(nullptr, 0);
    EXPECT_EQ(sink.At(avix), Text("RIFF") + Bytes("CC 00 00 00") + Text("AVIXLIST") + Bytes("C0 00 00 00") +
                                 Text("movi"));  // 24 + 108 + 40 + 32
    // qwBaseOffset is the place of "movi": 0x4000010A + 20.
    EXPECT_EQ(sink.At(avix + 24 + 108), Text("ix00") + Bytes("20 00 00 00  02 00 00 01  01 00 00 00") + Text("00dc") +
                                            Bytes("1E 01 00 40 00 00 00 00  00 00 00 00  0C 00 00 00  64 00 00 00"));
    const ByteVector list = sink.At(12);
    EXPECT_EQ(Slice(list, 76 + 124, 64), Text("indx") + Bytes("00 04 00 00  04 00 00 00  02 00 00 00") + Text("00dc") +
                                             ByteVector(12) +
                                             Bytes("02 00 00 40 00 00 00 00  60 00 00 00  08 00 00 00") +
                                             Bytes("8E 01 00 40 00 00 00 00  28 00 00 00  01 00 00 00"));
}

TEST_F(AviLimit, AnAvixWithoutFramesHasEmptyIndexesThatNoSuperIndexNames) {
    Give(kRest + 2);
    packet.createTailer(nullptr, 0);
    const uint64_t avix = 0x40000002 + 128 + 136;
    EXPECT_EQ(Slice(sink.At(avix), 0, 8), Text("RIFF") + Bytes("58 00 00 00"));
    EXPECT_EQ(sink.end, avix + 88);
    const ByteVector list = sink.At(12);
    EXPECT_EQ(Le32(list, 76 + 124 + 12), 1u);
    EXPECT_EQ(FourCC(list, 76 + 1156), "odml");  // one of pictures alone has it, too
}

TEST_F(AviLimit, NoStreamOpensInAnAvixAndItsFramesAreWritten) {
    Give(kRest + 2);
    EXPECT_EQ(Give(50, MX_FRAME_AUDIO), 0u);
    EXPECT_EQ(sink.frames.rbegin()->second.id, "01wb");
    packet.createTailer(nullptr, 0);
    const ByteVector list = sink.At(12);
    EXPECT_EQ(Le32(list, 12 + 32), 1u);          // dwStreams
    EXPECT_EQ(FourCC(list, 76 + 1156), "odml");  // no second stream list
}

TEST_F(AviLimit, AStandardIndexMarksPredictedPicturesAlone) {
    Give(kRest + 2);
    const uint64_t avix = 0x40000002 + 128 + 136;
    ByteVector expected;
    for (const auto& [sub_type, size] : {std::pair(0u, "02 00 00 00"),
                                         {1u, "02 00 00 80"},
                                         {2u, "02 00 00 00"},
                                         {3u, "02 00 00 00"},
                                         {8u, "02 00 00 00"},
                                         {18u, "02 00 00 00"},
                                         {19u, "02 00 00 80"},
                                         {20u, "02 00 00 00"}}) {
        MXFrameInfo frame = test::VideoFrame(pool, MX_VIDEO_H264, sub_type);
        frame.frame_size = 2;
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
        expected = expected + Bytes(size);
    }
    MXFrameInfo sound = test::AudioFrame(pool, MX_AUDIO_ALAW);
    sound.frame_sub_type = 1;
    sound.frame_size = 2;
    EXPECT_EQ(packet.inputFrame(&sound, 0), 0u);
    packet.createTailer(nullptr, 0);
    // Nine chunks of ten bytes, then the indexes.
    const ByteVector video = sink.At(avix + 24 + 90);
    ASSERT_EQ(video.size(), 32u + 8 * 8);
    ByteVector sizes;
    for (size_t i = 0; i < 8; ++i)
        sizes = sizes + Slice(video, 32 + 8 * i + 4, 4);
    EXPECT_EQ(sizes, expected);
    EXPECT_EQ(Slice(sink.At(avix + 24 + 90 + 96), 32, 8), Bytes("5C 00 00 00  02 00 00 00"));
}

TEST_F(AviLimit, AacInAnAvixLosesItsHeaderWhateverItIs) {
    Give(kRest + 2);
    ByteVector data = Bytes("00 00 4C 80 01 7F FC  21 10");
    MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_AAC);
    EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(sink.frames.rbegin()->second, (FrameChunk{"01wb", 2, 0, Hash("\x21\x10", 2)}));
    const uint64_t end = sink.end;
    frame.frame_size = 6;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(sink.end, end);
}

TEST_F(AviLimit, AnotherTailClosesTheLastAvixAgain) {
    Give(kRest + 2);
    Give(100);
    packet.createTailer(nullptr, 0);
    const uint64_t avix = 0x40000002 + 128 + 136;
    const uint64_t end = avix + 24 + 108 + 40 + 32;
    ASSERT_EQ(sink.end, end);
    const ByteVector index = sink.At(avix + 24 + 108);
    EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);
    // ix00 and ix01 once more, 72 bytes; the head and the list count them.
    EXPECT_EQ(sink.At(end), index);
    EXPECT_EQ(FourCC(sink.At(end + 40), 0), "ix01");
    EXPECT_EQ(sink.end, end + 72);
    EXPECT_EQ(sink.At(avix),
              Text("RIFF") + Bytes("14 01 00 00") + Text("AVIXLIST") + Bytes("08 01 00 00") + Text("movi"));
    EXPECT_EQ(Slice(sink.At(12), 76 + 124, 80), Text("indx") + Bytes("00 04 00 00  04 00 00 00  03 00 00 00") +
                                                    Text("00dc") + ByteVector(12) +
                                                    Bytes("02 00 00 40 00 00 00 00  60 00 00 00  08 00 00 00") +
                                                    Bytes("8E 01 00 40 00 00 00 00  28 00 00 00  01 00 00 00") +
                                                    Bytes("D6 01 00 40 00 00 00 00  28 00 00 00  01 00 00 00"));
    // The writer is still there for a frame.
    EXPECT_EQ(Give(50), 0u);
    EXPECT_EQ(LastAt(), end + 72);
}

int32_t DropBlock(const MXOutputBlock* /*block*/, void* /*user*/) {
    return 0;
}

// The next RIFF goes on in the memory of the one before.
TEST_F(AviLimit, AnAvixTakesOverTheIndexes) {
    packet.setCallback(DropBlock, nullptr);
    for (int i = 0; i < 5000; ++i)
        Give(16);
    const test::AllocationCounter allocations;
    EXPECT_EQ(Give(kRest), 0u);  // ends the first RIFF
    for (int i = 0; i < 5000; ++i)
        Give(16);
    EXPECT_EQ(allocations.Count(), 0u);
}

TEST_F(AviLimit, ARiffEndsAndTheNextBeginsWithoutMemory) {
    packet.setCallback(DropBlock, nullptr);
    EXPECT_EQ(Give(kRest - 100), 0u);
    Give(16);
    {
        const test::FailingAllocations failing;
        EXPECT_EQ(Give(200), 0u);
        EXPECT_EQ(Give(100), 0u);
        EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);
    }
}

}  // namespace
}  // namespace Orvane::Muxora
