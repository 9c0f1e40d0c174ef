// The tracks of a moov (ISO/IEC 14496-12 8.3.2, 8.4.2, 8.5.2, 8.6.6), with fields of 32 bits and of 64.
#include "exact/hybrid_front.h"

#include <gtest/gtest.h>

#include "support/box_literal.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Box;
using test::Bytes;
using test::ByteVector;
using test::operator+;

const ByteVector kEntry = Box("avc1", Bytes("01 02 03 04"));

// What a track is made of; the sound track of 8000 ticks a second has no edits.
struct Trak {
    const char* id = "00000001";
    const char* scale = "00015F90";
    ByteVector edits = {};
    ByteVector entries = Bytes("00000000 00000001") + kEntry;
    bool wide = false;

    // creation and modification time, and a duration, are of either width.
    ByteVector Version() const { return wide ? Bytes("01000000") : Bytes("00000000"); }
    ByteVector Times() const { return wide ? ByteVector(16, 0x11) : ByteVector(8, 0x11); }
    ByteVector Header() const {
        return Box("tkhd", Version() + Times() + Bytes(id) + (wide ? ByteVector(12) : ByteVector(8)) + ByteVector(16) +
                               Bytes("00000000 00010000") + ByteVector(28) + Bytes("02800000 01680000"));
    }
    ByteVector Written() const {
        const ByteVector media = Box("mdhd", Version() + Times() + Bytes(scale) + ByteVector(wide ? 12 : 8));
        const ByteVector edit = edits.empty() ? ByteVector{} : Box("edts", Box("elst", edits));
        return Box("trak", Header() + edit + Box("mdia", media + Box("minf", Box("stbl", Box("stsd", entries)))));
    }
};

std::optional<std::vector<Mp4Track>> Read(const std::vector<Trak>& traks) {
    ByteVector movie = Box("mvhd", ByteVector(100));
    for (const Trak& trak : traks)
        movie = movie + trak.Written();
    return ReadHybridTracks(movie);
}

TEST(HybridFront, FieldsOfEitherWidth) {
    for (const bool wide : {false, true}) {
        const ByteVector edits = wide ? Bytes("01000000 00000001 0000000000000000 0000000100000005 00010000")
                                      : Bytes("00000000 00000001 00000000 00000BB8 00010000");
        const auto tracks = Read({{.edits = edits, .wide = wide}});
        ASSERT_TRUE(tracks && tracks->size() == 1) << wide;
        const Mp4Track& track = tracks->front();
        EXPECT_TRUE(track.present && track.video);
        EXPECT_EQ(track.time_scale, 90000u);
        EXPECT_EQ(track.rotation, 90u);
        EXPECT_EQ(track.edit_shift, wide ? 0x100000005 : 3000);
        ASSERT_EQ(track.entries.size(), 1u);
        EXPECT_EQ(track.entries[0].width, 640u);
        EXPECT_EQ(track.entries[0].height, 360u);
        EXPECT_EQ(track.entries[0].box, kEntry);
    }
}

TEST(HybridFront, OnePictureTrackAndOneOfSoundBehindIt) {
    const Trak video;
    const Trak audio{.id = "00000002", .scale = "00001F40"};
    EXPECT_TRUE(Read({video, audio}));
    EXPECT_TRUE(Read({audio}));
    EXPECT_FALSE(Read({}));
    EXPECT_FALSE(Read({audio, video}));
    EXPECT_FALSE(Read({audio, audio}));
    EXPECT_FALSE(Read({video, video}));
    EXPECT_FALSE(Read({video, audio, audio}));
}

// 2^25 ticks a second are the finest.
TEST(HybridFront, ScalesHaveBounds) {
    EXPECT_TRUE(Read({{.scale = "02000000"}}));
    EXPECT_FALSE(Read({{.scale = "02000001"}}));
    EXPECT_FALSE(Read({{.scale = "00000000"}}));
}

// 2^57 is 2^32 seconds of the finest scale.
TEST(HybridFront, EditsHaveBounds) {
    const auto reads = [](const char* count, const char* time) {
        const ByteVector edits = Bytes("01000000") + Bytes(count) + ByteVector(8) + Bytes(time) + Bytes("00010000");
        return Read({{.edits = edits}}).has_value();
    };
    EXPECT_TRUE(reads("00000001", "02000000 00000000"));
    EXPECT_FALSE(reads("00000001", "02000000 00000001"));
    EXPECT_FALSE(reads("00000001", "FFFFFFFF FFFFFFFF"));
    EXPECT_FALSE(reads("00000002", "00000000 00000000"));
}

TEST(HybridFront, EntriesAreAsManyAsIsSaid) {
    EXPECT_TRUE(Read({{.entries = Bytes("00000000 00000002") + kEntry + kEntry}}));
    EXPECT_FALSE(Read({{.entries = Bytes("00000000 00000002") + kEntry}}));
    EXPECT_FALSE(Read({{.entries = Bytes("00000000 00000000")}}));
    EXPECT_FALSE(Read({{.entries = Bytes("00000000 00000001") + kEntry + Bytes("00")}}));
    EXPECT_FALSE(Read({{.entries = Bytes("00000000")}}));
}

}  // namespace
}  // namespace Orvane::Muxora
