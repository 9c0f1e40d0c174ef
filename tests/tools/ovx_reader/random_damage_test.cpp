// The library writes, bytes are flipped, cut out and put in at random, and the reader tells what is left.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

#include "MuxoraAPI.h"
#include "ovx_reader/decryptor.h"
#include "ovx_reader/reader.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/sink.h"

namespace Orvane::OvxReader {
namespace {

using test::ByteVector;

constexpr size_t kUnits = 60;

struct Original {
    size_t begin;
    size_t end;
    size_t extension_size;
    ByteVector frame;
};

struct HandleRelease {
    void operator()(void* handle) const { MX_DestroyHandle(handle); }
};

class OvxRandomDamage : public testing::Test {
  protected:
    void SetUp() override { Pack(nullptr); }

    void Pack(const ByteVector* key) {
        originals.clear();
        sink.Clear();
        const MXCreateParam param = sink.Param();
        const std::unique_ptr<void, HandleRelease> handle(MX_CreateHandle(MX_FORMAT_OVX, &param));
        MXHeaderInfo info{};
        ASSERT_EQ(MX_CreateHeader(handle.get(), &info), 0u);
        if (key != nullptr) {
            ASSERT_EQ(MX_SetEncryptType(handle.get(), 0, key->data(), static_cast<uint32_t>(key->size())), 0u);
        }
        for (size_t i = 0; i < kUnits; ++i) {
            ByteVector data = RandomFrame();
            const ByteVector plain = data;
            MXFrameInfo frame = i % 3 == 2 ? test::AudioFrame(data, MX_AUDIO_AAC, static_cast<uint32_t>(40 * i))
                                           : test::VideoFrame(data, MX_VIDEO_H264, i % 10 == 0 ? MX_SUB_I : MX_SUB_P,
                                                              static_cast<uint32_t>(40 * i));
            frame.bitrate = i % 2 == 0 ? 64000 : 0;
            frame.encrypt_offset = static_cast<uint16_t>(Below(50));
            frame.encrypt_length = static_cast<uint32_t>(16 + Below(1000));
            const size_t begin = sink.file.size();
            ASSERT_EQ(MX_InputFrame(handle.get(), &frame), 0u);
            originals.push_back({begin, sink.file.size(), sink.Last()[22], plain});
        }
        whole = file = sink.file;
    }

    // Random bytes, now and then with the tags of the format in them.
    ByteVector RandomFrame() {
        ByteVector data(1 + Below(1500));
        for (uint8_t& byte : data)
            byte = static_cast<uint8_t>(random());
        for (const char* const tag : {"ORVX", "orvx"}) {
            if (data.size() > 20 && Below(4) == 0) std::copy_n(tag, 4, data.begin() + Offset(Below(data.size() - 4)));
        }
        return data;
    }
    size_t Below(size_t bound) { return random() % bound; }
    static std::ptrdiff_t Offset(size_t at) { return static_cast<std::ptrdiff_t>(at); }

    std::vector<Piece> Read() const {
        Reader reader(file);
        std::vector<Piece> pieces;
        uint64_t at = 0;
        while (const auto piece = reader.Next()) {
            EXPECT_EQ(piece->offset, at);
            at += piece->length;
            pieces.push_back(*piece);
        }
        EXPECT_EQ(at, file.size());
        return pieces;
    }

    // A file whose bytes know where they come from: kNowhere for what has been changed or put in.
    static constexpr size_t kNowhere = SIZE_MAX;
    void Track() {
        source.resize(file.size());
        for (size_t i = 0; i < source.size(); ++i)
            source[i] = i;
    }
    void Flip(size_t at) {
        file[at] ^= static_cast<uint8_t>(1u << Below(8));
        source[at] = kNowhere;
    }
    void Cut(size_t at, size_t count) {
        file.erase(file.begin() + Offset(at), file.begin() + Offset(at + count));
        source.erase(source.begin() + Offset(at), source.begin() + Offset(at + count));
    }
    void Insert(size_t at, size_t count) {
        ByteVector noise(count);
        for (uint8_t& byte : noise)
            byte = static_cast<uint8_t>(random());
        file.insert(file.begin() + Offset(at), noise.begin(), noise.end());
        source.insert(source.begin() + Offset(at), count, kNowhere);
    }
    // Where an original unit stands now, if all its bytes do.
    std::optional<size_t> PlaceOf(const Original& unit, const std::vector<size_t>& place_of) const {
        const size_t place = place_of[unit.begin];
        if (place == kNowhere) return std::nullopt;
        const auto first = source.begin() + Offset(place);
        const size_t size = unit.end - unit.begin;
        if (size > source.size() - place) return std::nullopt;
        // Cuts and insertions shift what follows, so that flips are all that is left to look for.
        if (source[place + size - 1] != unit.end - 1) return std::nullopt;
        if (std::find(first, first + Offset(size), kNowhere) != first + Offset(size)) return std::nullopt;
        return place;
    }
    // Are the bytes of a piece those of an original unit? The records but the data check, which comes last in this
    // test, are under no check sum: a change there may not show.
    bool Same(const Piece& piece, const Original& unit) const {
        if (piece.length != unit.end - unit.begin) return false;
        const auto now = file.begin() + Offset(piece.offset);
        const auto then = whole.begin() + Offset(unit.begin);
        const auto equal = [&](size_t from, size_t to) {
            return std::equal(now + Offset(from), now + Offset(to), then + Offset(from));
        };
        return equal(0, 24) && equal(24 + unit.extension_size - 8, piece.length);
    }

    // Every undamaged unit comes back, and nothing else is called intact.
    void ExpectExactly() const {
        const auto pieces = Read();
        std::vector<bool> expected(pieces.size());
        std::vector<size_t> place_of(whole.size(), kNowhere);
        for (size_t i = 0; i < source.size(); ++i) {
            if (source[i] != kNowhere) place_of[source[i]] = i;
        }
        for (const Original& unit : originals) {
            const auto place = PlaceOf(unit, place_of);
            if (!place) continue;
            const auto piece =
                std::find_if(pieces.begin(), pieces.end(), [&](const Piece& p) { return p.offset == *place; });
            ASSERT_NE(piece, pieces.end()) << "unit at " << *place << " is missing";
            ASSERT_TRUE(piece->Intact()) << "unit at " << *place;
            ASSERT_EQ(piece->length, unit.end - unit.begin);
            ASSERT_TRUE(std::equal(piece->frame.begin(), piece->frame.end(), unit.frame.begin(), unit.frame.end()));
            expected[static_cast<size_t>(piece - pieces.begin())] = true;
        }
        for (size_t i = 0; i < pieces.size(); ++i) {
            if (!pieces[i].Intact() || expected[i]) continue;
            const auto same = std::find_if(originals.begin(), originals.end(),
                                           [&](const Original& unit) { return Same(pieces[i], unit); });
            ASSERT_NE(same, originals.end()) << "the piece at " << pieces[i].offset << " is not what it was";
        }
    }

    std::mt19937 random{20240229};
    test::Sink sink;
    std::vector<Original> originals;
    ByteVector whole;
    ByteVector file;
    std::vector<size_t> source;
};

TEST_F(OvxRandomDamage, WithoutDamageEverythingComesBack) {
    const auto pieces = Read();
    ASSERT_EQ(pieces.size(), kUnits);
    Track();
    ExpectExactly();
}

TEST_F(OvxRandomDamage, OneFlippedBitIsToldWithTheUnitAndItsPart) {
    for (int round = 0; round < 3000; ++round) {
        file = whole;
        Track();
        const Original& unit = originals[Below(kUnits)];
        // Half of the flips fall into head, records and tail, which are small.
        const size_t small = 24 + unit.extension_size + 8;
        size_t in_unit = Below(unit.end - unit.begin);
        if (round % 2 == 0) {
            in_unit = Below(small);
            if (in_unit >= small - 8) in_unit += unit.frame.size();
        }
        Flip(unit.begin + in_unit);
        ExpectExactly();
        const auto pieces = Read();
        ASSERT_EQ(pieces.size(), kUnits);
        const Piece& piece = pieces[static_cast<size_t>(&unit - originals.data())];
        ASSERT_TRUE(piece.is_unit);
        ASSERT_EQ(piece.offset, unit.begin);
        ASSERT_EQ(piece.length, unit.end - unit.begin);
        if (in_unit < 24) {
            ASSERT_EQ(piece.damage, kDamagedHead);
        } else if (in_unit >= unit.end - unit.begin - 8) {
            ASSERT_EQ(piece.damage, kDamagedTail);
            ASSERT_TRUE(piece.Usable());
        } else if (in_unit >= 24 + unit.extension_size) {
            ASSERT_EQ(piece.damage, kDamagedFrame);
        } else if (in_unit >= 24 + unit.extension_size - 8) {
            ASSERT_FALSE(piece.Intact());
        }
    }
}

TEST_F(OvxRandomDamage, ManyFlips) {
    for (int round = 0; round < 300; ++round) {
        file = whole;
        Track();
        for (size_t flips = 1 + Below(30); flips != 0; --flips)
            Flip(Below(file.size()));
        ExpectExactly();
    }
}

TEST_F(OvxRandomDamage, Cuts) {
    for (int round = 0; round < 500; ++round) {
        file = whole;
        Track();
        for (size_t cuts = 1 + Below(4); cuts != 0; --cuts) {
            const size_t at = Below(file.size() - 1);
            Cut(at, std::min(1 + Below(round % 2 == 0 ? 20 : 3000), file.size() - at - 1));
        }
        ExpectExactly();
    }
}

TEST_F(OvxRandomDamage, TruncatedAtEveryLengthOfTheLastUnits) {
    for (size_t size = originals[kUnits - 2].begin; size <= whole.size(); ++size) {
        file = whole;
        file.resize(size);
        Track();
        ExpectExactly();
    }
}

TEST_F(OvxRandomDamage, EverythingAtOnce) {
    for (int round = 0; round < 500; ++round) {
        file = whole;
        Track();
        for (size_t changes = 1 + Below(10); changes != 0; --changes) {
            const size_t at = Below(file.size() - 1);
            switch (Below(3)) {
                case 0:
                    Flip(at);
                    break;
                case 1:
                    Cut(at, std::min(1 + Below(500), file.size() - at - 1));
                    break;
                default:
                    Insert(at, 1 + Below(500));
                    break;
            }
        }
        ExpectExactly();
    }
}

TEST_F(OvxRandomDamage, EncryptedFramesComeBackWithTheKey) {
    for (const size_t key_length : {16u, 24u, 32u}) {
        ByteVector key(key_length);
        for (uint8_t& byte : key)
            byte = static_cast<uint8_t>(random());
        Pack(&key);
        auto decryptor = Decryptor::Make(key);
        ASSERT_TRUE(decryptor);
        const auto pieces = Read();
        ASSERT_EQ(pieces.size(), kUnits);
        size_t encrypted = 0;
        for (size_t i = 0; i < kUnits; ++i) {
            ASSERT_TRUE(pieces[i].Intact());
            ByteVector frame(pieces[i].frame.begin(), pieces[i].frame.end());
            encrypted += frame != originals[i].frame;
            decryptor->Decrypt(pieces[i].extension, frame);
            EXPECT_EQ(frame, originals[i].frame) << i;
        }
        EXPECT_GT(encrypted, kUnits / 2);
    }
}

}  // namespace
}  // namespace Orvane::OvxReader
