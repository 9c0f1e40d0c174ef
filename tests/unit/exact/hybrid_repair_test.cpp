// A hybrid MP4 that was cut off, and the same one closed: what MX_RepairHybrid makes of the first is the second.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "exact/hmp4_packet.h"
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

// A file in memory; each access is checked.
struct MemoryFile {
    ByteVector bytes;
    int writes_left = 1 << 30;
    int reads_left = 1 << 30;
    bool readable = true;
    bool wrote = false;

    MXHybridFile Record() { return {sizeof(MXHybridFile), 0, this, bytes.size(), Read, Write, Cut}; }
    MXHybridRepair Repair(uint32_t expected = MX_OK) {
        const MXHybridFile file = Record();
        MXHybridRepair repair{};
        repair.size = sizeof repair;
        EXPECT_EQ(MX_RepairHybrid(&file, &repair), expected) << repair.message;
        return repair;
    }

    static MemoryFile& Of(void* user) { return *static_cast<MemoryFile*>(user); }
    static uint32_t Read(void* user, uint64_t position, void* data, uint32_t length) {
        MemoryFile& file = Of(user);
        if (!file.readable || file.reads_left-- <= 0) return 1;
        const bool inside = position <= file.bytes.size() && length <= file.bytes.size() - position;
        EXPECT_TRUE(inside) << position << " " << length;
        if (!inside) return 1;
        std::copy_n(file.bytes.begin() + static_cast<std::ptrdiff_t>(position), length, static_cast<uint8_t*>(data));
        return 0;
    }
    static uint32_t Write(void* user, uint64_t position, const void* data, uint32_t length) {
        MemoryFile& file = Of(user);
        if (file.writes_left-- <= 0) return 1;
        file.wrote = true;
        EXPECT_LE(position, file.bytes.size());
        const size_t at = static_cast<size_t>(position);
        if (file.bytes.size() < at + length) file.bytes.resize(at + length);
        std::copy_n(static_cast<const uint8_t*>(data), length, file.bytes.begin() + static_cast<std::ptrdiff_t>(at));
        return 0;
    }
    static uint32_t Cut(void* user, uint64_t length) {
        MemoryFile& file = Of(user);
        if (file.writes_left-- <= 0) return 1;
        file.bytes.resize(static_cast<size_t>(length));
        return 0;
    }
};

// Times of creation and of modification differ by when a file was closed; nothing else may.
ByteVector WithoutClock(ByteVector bytes) {
    for (const char* type : {"mvhd", "tkhd", "mdhd"}) {
        const std::string name = type;
        auto at = bytes.begin();
        while ((at = std::search(at, bytes.end(), name.begin(), name.end())) != bytes.end()) {
            std::fill_n(at + 8, at[4] == 1 ? 16 : 8, uint8_t{0});
            at += 8;
        }
    }
    return bytes;
}

ByteVector Key(uint8_t fill) {
    return test::Units({test::HighSps(), test::HighPps(), Bytes("65 88") + ByteVector(20, fill)});
}

ByteVector Inter(uint8_t fill) {
    return test::Units({Bytes("41 9A") + ByteVector(6, fill)});
}

struct HybridRepair : testing::Test {
    std::unique_ptr<ExactStream> stream = ExactStream::Of<CHmp4Packet>(MX_FORMAT_HMP4);

    // Pictures that are reordered, sound with priming, other parameter sets on the way, a gap: four fragments.
    void Record() {
        stream->Open();
        stream->Audio(Adts(ByteVector(9, 0xA0)), -1024, 1024);
        stream->Video(Key(1), MX_SUB_I, -3600, 0, 3600);
        stream->Video(Inter(2), MX_SUB_P, 0, 7200, 3600);
        stream->Video(Inter(3), MX_SUB_B, 3600, 3600, 3600);
        stream->Audio(Adts(ByteVector(10, 0xA1)), 0, 1024);
        stream->Video(Key(4), MX_SUB_I, 9000, 10800);
        stream->Audio(Adts(ByteVector(11, 0xA2)), 5000, 1024);
        stream->Video(Inter(5), MX_SUB_P, 12000, 15000);
        stream->Video(test::Units({test::BaselineSps(), test::BaselinePps(), Bytes("65 88 01")}), MX_SUB_I, 16000,
                      20000);
        stream->Audio(Adts(ByteVector(12, 0xA3)), 7000, 1024);
        stream->Video(Key(6), MX_SUB_I, 20000, 24000, 3600);
    }
    // As it is once the last fragment is there, and nothing of the tail.
    ByteVector Growing() {
        ExactStream cut;
        for (const ExactStream::Block& block : stream->blocks) {
            if (block.note.kind == MX_BLOCK_INDEX) break;
            cut.blocks.push_back(block);
        }
        return cut.File();
    }
    // Where the fragments end.
    std::vector<size_t> Ends() const {
        std::vector<size_t> ends;
        for (const ExactStream::Block& block : stream->blocks) {
            if (block.note.kind == MX_BLOCK_MEDIA) {
                ends.push_back(static_cast<size_t>(block.note.block.offset) + block.data.size());
            }
        }
        return ends;
    }
};

TEST_F(HybridRepair, ARepairedFileIsTheClosedOne) {
    Record();
    EXPECT_EQ(stream->Close(), 0u);
    MemoryFile file{Growing()};
    const MXHybridRepair repair = file.Repair();
    EXPECT_EQ(repair.state, uint32_t{MX_HYBRID_REPAIRED});
    EXPECT_EQ(repair.fragments, 4u);
    EXPECT_EQ(repair.media_end, Ends().back());
    EXPECT_EQ(repair.length, file.bytes.size());
    EXPECT_STREQ(repair.message, "");
    EXPECT_EQ(WithoutClock(file.bytes), WithoutClock(stream->File()));
    EXPECT_EQ(IsoFile(file.bytes).Layout(), "ftyp mdat moov");
}

TEST_F(HybridRepair, RotationShapeAndSoundAloneCarryOver) {
    for (const uint32_t degrees : {0u, 90u, 180u, 270u}) {
        stream = ExactStream::Of<CHmp4Packet>(MX_FORMAT_HMP4);
        const uint32_t tracks = degrees == 0 ? MX_TRACKS_AUDIO : MX_TRACKS_VIDEO;
        static_cast<CHmp4Packet&>(*stream->package)
            .SetFragmentParam({sizeof(MXFragmentParam), MX_FRAGMENT_DURATION, 20, tracks, 0, 0});
        stream->Open();
        if (degrees == 0) {
            for (int i = 0; i < 9; ++i)
                stream->Audio(ByteVector(160, 0x55), i * 160, 160, 8000, MX_AUDIO_ALAW);
        } else {
            ByteVector bytes = Key(1);
            MXFrameInfo frame = test::VideoFrame(bytes, MX_VIDEO_H264, MX_SUB_I);
            frame.rotation_angle = degrees;
            for (int i = 0; i < 3; ++i) {
                MXSetFrameTimes(&frame, 90000, i * 3600, i * 3600, 3600);
                EXPECT_EQ(stream->package->inputFrame(&frame, 0), 0u);
            }
        }
        EXPECT_EQ(stream->Close(), 0u);
        MemoryFile file{Growing()};
        EXPECT_GE(file.Repair().fragments, 2u) << degrees;
        EXPECT_EQ(WithoutClock(file.bytes), WithoutClock(stream->File())) << degrees;
    }
}

// Wherever it was cut: all whole fragments, nothing else, and a second run does no harm.
TEST_F(HybridRepair, CutOffAnywhereItHasAllWholeFragments) {
    Record();
    EXPECT_EQ(stream->Close(), 0u);
    const std::vector<size_t> ends = Ends();
    // With what a tail had written of its index.
    ByteVector whole = Growing();
    for (const ExactStream::Block& block : stream->blocks) {
        if (block.note.kind == MX_BLOCK_INDEX) whole = whole + block.data;
    }
    for (size_t size = 0; size <= whole.size(); ++size) {
        MemoryFile file{test::Slice(whole, 0, size)};
        const auto fragments =
            static_cast<size_t>(std::count_if(ends.begin(), ends.end(), [&](size_t end) { return end <= size; }));
        if (fragments == 0) {
            const MXHybridFile record = file.Record();
            MXHybridRepair repair{};
            repair.size = sizeof repair;
            MX_RepairHybrid(&record, &repair);
            EXPECT_NE(repair.state, uint32_t{MX_HYBRID_REPAIRED}) << size;
            EXPECT_FALSE(file.wrote) << size;
            continue;
        }
        const MXHybridRepair repair = file.Repair();
        ASSERT_EQ(repair.state, uint32_t{MX_HYBRID_REPAIRED}) << size;
        ASSERT_EQ(repair.fragments, fragments) << size;
        ASSERT_EQ(repair.media_end, ends[fragments - 1]) << size;
        const IsoFile iso(file.bytes);
        ASSERT_EQ(iso.Layout(), "ftyp mdat moov") << size;
        ASSERT_EQ(iso.Offsets(0).size(), fragments) << size;
        const ByteVector repaired = file.bytes;
        EXPECT_EQ(file.Repair().state, uint32_t{MX_HYBRID_OTHER});
        EXPECT_EQ(file.bytes, repaired);
    }
}

// Killed within any of its writes, the fragment that is not released yet included.
TEST_F(HybridRepair, KilledInAnyWriteItHasAllWholeFragments) {
    Record();
    EXPECT_EQ(stream->Close(), 0u);
    ExactStream killed;
    size_t fragments = 0;
    for (const ExactStream::Block& block : stream->blocks) {
        if (block.note.kind == MX_BLOCK_INDEX) break;
        killed.blocks.push_back(block);
        // The index in front is overwritten within a page.
        const bool front = block.note.kind == MX_BLOCK_PATCH && block.note.block.offset == 52;
        for (size_t size = front ? block.data.size() : 0; size <= block.data.size(); size += size < 40 ? 1 : 13) {
            killed.blocks.back().data = test::Slice(block.data, 0, size);
            if (fragments == 0) continue;
            MemoryFile file{killed.File()};
            ASSERT_EQ(file.Repair().fragments, fragments) << size;
            ASSERT_EQ(IsoFile(file.bytes).Layout(), "ftyp mdat moov") << size;
            ASSERT_EQ(IsoFile(file.bytes).Offsets(0).size(), fragments) << size;
        }
        killed.blocks.back().data = block.data;
        if (block.note.kind == MX_BLOCK_MEDIA) ++fragments;
        if (fragments == 0) continue;
        EXPECT_EQ(MemoryFile{killed.File()}.Repair().fragments, fragments);
    }
    EXPECT_EQ(fragments, 4u);
}

TEST_F(HybridRepair, ARepairThatIsCutOffCanBeRunAgain) {
    Record();
    EXPECT_EQ(stream->Close(), 0u);
    MemoryFile whole{Growing()};
    whole.Repair();
    for (int writes = 0; writes < 3; ++writes) {
        MemoryFile file{Growing() + ByteVector(3, 0x11)};
        file.writes_left = writes;
        const MXHybridRepair failed = file.Repair(MX_FAILED);
        EXPECT_EQ(failed.state, uint32_t{MX_HYBRID_FAILED});
        EXPECT_STREQ(failed.message, "cannot be written");
        file.writes_left = 100;
        EXPECT_EQ(file.Repair().state, uint32_t{MX_HYBRID_REPAIRED}) << writes;
        EXPECT_EQ(WithoutClock(file.bytes), WithoutClock(whole.bytes)) << writes;
    }
    MemoryFile blind{Growing()};
    blind.readable = false;
    EXPECT_STREQ(blind.Repair(MX_FAILED).message, "cannot be read");
}

TEST_F(HybridRepair, WhatDoesNotHoldTogetherIsRefused) {
    Record();
    EXPECT_EQ(stream->Close(), 0u);
    const ByteVector whole = Growing();
    const auto changed = [&](const std::string& type, size_t occurrence, std::ptrdiff_t offset,
                             const ByteVector& value) {
        MemoryFile file{whole};
        auto at = file.bytes.begin();
        for (size_t i = 0;; ++i, ++at) {
            at = std::search(at, file.bytes.end(), type.begin(), type.end());
            if (i == occurrence) break;
        }
        std::copy(value.begin(), value.end(), at + offset);
        return file;
    };
    const auto refused = [&](const std::string& type, size_t occurrence, std::ptrdiff_t offset,
                             const ByteVector& value) {
        MemoryFile file = changed(type, occurrence, offset, value);
        const MXHybridRepair repair = file.Repair(MX_FAILED);
        EXPECT_EQ(repair.state, uint32_t{MX_HYBRID_REFUSED});
        EXPECT_FALSE(file.wrote);
        return std::string(repair.message);
    };
    EXPECT_EQ(refused("moof", 1, 0, Text("junk")), "there is something else than a fragment");
    EXPECT_EQ(refused("mdat", 1, 0, Text("junk")), "the fragment's media does not follow its index");
    EXPECT_EQ(refused("mvex", 0, 0, Text("junk")), "the index in front announces no fragments");
    EXPECT_EQ(refused("tkhd", 0, 16, Bytes("00000007")), "the index in front has other tracks than a hybrid MP4");
    EXPECT_EQ(refused("tkhd", 1, 16, Bytes("00000001")), "the index in front has other tracks than a hybrid MP4");
    EXPECT_EQ(refused("tfhd", 0, 8, Bytes("00000003")), "the fragment does not hold together");
    EXPECT_EQ(refused("trun", 0, 8, Bytes("7FFFFFFF")), "the fragment does not hold together");
    EXPECT_EQ(refused("trun", 0, 12, Bytes("00000000")), "the fragment does not hold together");
    EXPECT_EQ(refused("tfdt", 0, 8, Bytes("FFFFFFFFFFFFFFFF")), "the fragment does not hold together");
    EXPECT_EQ(refused("tfdt", 2, 8, Bytes("0000000000000000")), "the fragment's times run backwards");
    EXPECT_EQ(refused("moof", 1, -4, Bytes("00000000")), "the fragment does not hold together");
    // A file system that lost what stands behind the index of the second fragment.
    EXPECT_EQ(changed("mdat", 1, -4, ByteVector(8)).Repair().fragments, 1u);
    EXPECT_EQ(changed("moof", 1, -4, ByteVector(8)).Repair().fragments, 1u);
    // The room behind the index in front.
    EXPECT_EQ(refused("free", 1, -4, Bytes("00000004")), "there is something else than a fragment");
    // The entry of the third fragment: its head names the second one.
    EXPECT_EQ(refused("tfhd", 4, 12, Bytes("00000009")), "how the fragment is coded stood in the index that was lost");
}

TEST_F(HybridRepair, OtherFilesAreLeftAlone) {
    Record();
    EXPECT_EQ(stream->Close(), 0u);
    for (const ByteVector& bytes : {ByteVector{}, ByteVector(200), Text("hello"), stream->File()}) {
        MemoryFile file{bytes};
        EXPECT_EQ(file.Repair().state, uint32_t{MX_HYBRID_OTHER});
        EXPECT_EQ(file.bytes, bytes);
    }
}

TEST_F(HybridRepair, EveryReadMayFail) {
    Record();
    const ByteVector bytes = stream->File();
    bool whole = false;
    for (int reads = 0; !whole; ++reads) {
        ASSERT_LT(reads, 10000);
        MemoryFile file{bytes};
        file.reads_left = reads;
        const MXHybridFile record = file.Record();
        MXHybridRepair repair{};
        repair.size = sizeof repair;
        whole = MX_RepairHybrid(&record, &repair) == MX_OK;
        EXPECT_EQ(repair.state, uint32_t{whole ? MX_HYBRID_REPAIRED : MX_HYBRID_FAILED}) << reads;
        if (whole) break;
        EXPECT_STREQ(repair.message, "cannot be read") << reads;
        EXPECT_EQ(file.reads_left, -1) << "nothing is read behind that";
        EXPECT_EQ(file.bytes, bytes) << reads;
        file.reads_left = 1 << 30;
        EXPECT_EQ(file.Repair().state, uint32_t{MX_HYBRID_REPAIRED}) << "tried again";
    }
}

TEST_F(HybridRepair, BadArgumentsAreRefused) {
    MemoryFile memory;
    MXHybridRepair repair{};
    MXHybridFile file = memory.Record();
    EXPECT_EQ(MX_RepairHybrid(&file, nullptr), uint32_t{MX_NULL_RECORD});
    EXPECT_EQ(MX_RepairHybrid(nullptr, &repair), uint32_t{MX_NULL_RECORD});
    EXPECT_EQ(MX_RepairHybrid(&file, &repair), uint32_t{MX_FAILED});  // its size is 0
    repair.size = sizeof repair;
    file.read = nullptr;
    EXPECT_EQ(MX_RepairHybrid(&file, &repair), uint32_t{MX_FAILED});
    file = memory.Record();
    file.write = nullptr;
    EXPECT_EQ(MX_RepairHybrid(&file, &repair), uint32_t{MX_FAILED});
    file = memory.Record();
    file.cut = nullptr;
    EXPECT_EQ(MX_RepairHybrid(&file, &repair), uint32_t{MX_FAILED});
    file = memory.Record();
    file.size = 8;
    EXPECT_EQ(MX_RepairHybrid(&file, &repair), uint32_t{MX_FAILED});
}

// Each byte of everything that is not media, with each of a few values, and then at random: it is repaired or refused,
// the reads stay inside the file (see MemoryFile), and a file that is refused stays as it was.
TEST_F(HybridRepair, GarbledBytesDoNoHarm) {
    Record();
    EXPECT_EQ(stream->Close(), 0u);
    const ByteVector whole = Growing();
    const auto run = [](MemoryFile file) {
        const ByteVector before = file.bytes;
        const MXHybridFile record = file.Record();
        MXHybridRepair repair{};
        repair.size = sizeof repair;
        const uint32_t result = MX_RepairHybrid(&record, &repair);
        if (repair.state == MX_HYBRID_REPAIRED) {
            EXPECT_EQ(result, uint32_t{MX_OK});
            EXPECT_EQ(test::Slice(file.bytes, 40, 4), Text("mdat"));
        } else {
            EXPECT_EQ(file.bytes, before);
        }
    };
    for (size_t at = 0; at < whole.size(); ++at) {
        for (const uint8_t value : test::Bytes("00 01 7F 80 FF")) {
            MemoryFile file{whole};
            file.bytes[at] = value;
            run(std::move(file));
        }
    }
    std::mt19937 random(12);
    for (uint32_t i = 0; i < 3000; ++i) {
        MemoryFile file{whole};
        for (uint32_t change = 0; change < 1 + i % 8; ++change)
            file.bytes[52 + random() % (whole.size() - 52)] = static_cast<uint8_t>(random());
        if (i % 3 == 0) file.bytes.resize(52 + random() % (whole.size() - 52));
        run(std::move(file));
    }
}

// The index of 20,000 samples is written in several pieces; after the first one that fails none is tried.
TEST_F(HybridRepair, NothingIsWrittenBehindAWriteThatFailed) {
    EXPECT_EQ(static_cast<CHmp4Packet&>(*stream->package)
                  .SetFragmentParam({sizeof(MXFragmentParam), MX_FRAGMENT_DURATION, 50000, MX_TRACKS_AUDIO, 0, 0}),
              0u);
    stream->Open(0, MX_AUDIO_ALAW);
    for (int i = 0; i < 20000; ++i)
        stream->Audio(ByteVector(16, 0x55), i * 16, 16, 8000, MX_AUDIO_ALAW);
    EXPECT_EQ(stream->Close(), 0u);
    MemoryFile file{Growing()};
    file.writes_left = 0;
    EXPECT_STREQ(file.Repair(MX_FAILED).message, "cannot be written");
    EXPECT_EQ(file.writes_left, -1);
    file.writes_left = 100;
    EXPECT_EQ(file.Repair().state, uint32_t{MX_HYBRID_REPAIRED});
    EXPECT_EQ(WithoutClock(file.bytes), WithoutClock(stream->File()));
}

}  // namespace
}  // namespace Orvane::Muxora
