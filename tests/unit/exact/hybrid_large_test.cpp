// Hybrid MP4 past 4 GiB: the one mdat and the places of the chunks take 64 bits, in a file that is closed and in one
// that is repaired.
#include <gtest/gtest.h>

#include <algorithm>

#include "exact/hmp4_packet.h"
#include "exact_stream.h"
#include "support/iso_file.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::ExactStream;
using test::IsoFile;
using test::Slice;
using test::operator+;

constexpr uint64_t kMediaHead = 36;  // where the head of mdat stands

ByteVector BigEndian(uint64_t value, size_t width) {
    ByteVector out(width);
    for (size_t i = 0; i < width; ++i)
        out[width - 1 - i] = static_cast<uint8_t>(value >> 8 * i);
    return out;
}

// A file of which only the bytes that are no media are there: pieces by their places, in rising order.
struct SparseFile {
    struct Piece {
        uint64_t at;
        ByteVector bytes;
    };
    std::vector<Piece> pieces;
    uint64_t length = 0;

    void Append(ByteVector bytes) {
        pieces.push_back({length, std::move(bytes)});
        length += pieces.back().bytes.size();
    }
    const ByteVector& At(uint64_t place) const {
        const auto found = std::find_if(pieces.begin(), pieces.end(), [=](const Piece& p) { return p.at == place; });
        if (found == pieces.end()) throw std::out_of_range("no piece begins there");
        return found->bytes;
    }

    MXHybridFile Record() { return {sizeof(MXHybridFile), 0, this, length, Read, Write, Cut}; }

    static SparseFile& Of(void* user) { return *static_cast<SparseFile*>(user); }
    // All of it from one piece: nobody has to look at the media.
    static uint32_t Read(void* user, uint64_t position, void* data, uint32_t size) {
        for (const Piece& piece : Of(user).pieces) {
            if (position < piece.at || position + size > piece.at + piece.bytes.size()) continue;
            std::copy_n(piece.bytes.begin() + static_cast<std::ptrdiff_t>(position - piece.at), size,
                        static_cast<uint8_t*>(data));
            return 0;
        }
        ADD_FAILURE() << "reads media at " << position;
        return 1;
    }
    static uint32_t Write(void* user, uint64_t position, const void* data, uint32_t size) {
        SparseFile& file = Of(user);
        const auto* const bytes = static_cast<const uint8_t*>(data);
        if (position == file.length) {
            file.Append({bytes, bytes + size});
            return 0;
        }
        Piece& first = file.pieces.front();
        EXPECT_LE(position + size, first.bytes.size());
        std::copy_n(bytes, size, first.bytes.begin() + static_cast<std::ptrdiff_t>(position));
        return 0;
    }
    static uint32_t Cut(void* user, uint64_t length) {
        EXPECT_EQ(length, Of(user).length);
        return 0;
    }
};

// Pictures, each a fragment, as a small recording has them, with another size stated.
struct KilledRecording {
    SparseFile file;
    std::vector<uint64_t> places;  // of the pictures

    KilledRecording(int64_t pictures, uint64_t size) {
        const auto stream = ExactStream::Of<CHmp4Packet>(MX_FORMAT_HMP4);
        auto& package = static_cast<CHmp4Packet&>(*stream->package);
        EXPECT_EQ(package.SetFragmentParam({sizeof(MXFragmentParam), MX_FRAGMENT_GOP, 0, MX_TRACKS_VIDEO, 0, 0}), 0u);
        stream->Open(MX_VIDEO_H264, 0);
        const ByteVector key = test::Units({test::HighSps(), test::HighPps(), Bytes("65 88 01 02")});
        for (int64_t i = 0; i < pictures; ++i)
            stream->Video(key, MX_SUB_I, i * 3600, i * 3600, 3600);
        EXPECT_EQ(stream->Close(), 0u);
        for (const ExactStream::Block& block : stream->blocks) {
            if (block.note.kind == MX_BLOCK_HEADER) file.Append(block.data);
            if (block.note.kind == MX_BLOCK_MEDIA) AppendFragment(block.data, size);
        }
    }
    MXHybridRepair Repair(uint32_t expected) {
        MXHybridRepair repair{};
        repair.size = sizeof repair;
        const MXHybridFile record = file.Record();
        EXPECT_EQ(MX_RepairHybrid(&record, &repair), expected) << repair.message;
        return repair;
    }

  private:
    // moof and the head of mdat; the sample of eight bytes is left out.
    void AppendFragment(const ByteVector& block, uint64_t size) {
        ByteVector head = Bytes("00 00 00 08 66 72 65 65") + Slice(block, 0, block.size() - 8);
        const auto put = [&head](size_t at, uint64_t value) {
            const ByteVector bytes = BigEndian(value, 4);
            std::copy(bytes.begin(), bytes.end(), head.begin() + static_cast<std::ptrdiff_t>(at));
        };
        EXPECT_EQ(Slice(head, head.size() - 12, 4), Bytes("00 00 00 08"));  // trun ends with the sample's size
        put(head.size() - 12, size);
        put(head.size() - 8, size + 8);
        file.Append(head);
        places.push_back(file.length);
        file.length += size;
    }
};

// Seven of 768 MiB: 5.25 GiB.
TEST(HybridLarge, ARepairedOneHasWidePlaces) {
    constexpr uint64_t kPicture = 0x30000000;
    KilledRecording killed(7, kPicture);
    SparseFile& file = killed.file;
    ASSERT_EQ(killed.places.size(), 7u);
    const uint64_t media_end = file.length;
    ASSERT_GT(media_end, uint64_t{5} << 30);

    const MXHybridRepair repair = killed.Repair(MX_OK);
    ASSERT_EQ(repair.state, uint32_t{MX_HYBRID_REPAIRED});
    EXPECT_EQ(repair.fragments, 7u);
    EXPECT_EQ(repair.media_end, media_end);
    EXPECT_EQ(repair.length, file.length);
    // ISO/IEC 14496-12 4.2: a size of 1, then the true one behind the type.
    EXPECT_EQ(Slice(file.pieces.front().bytes, kMediaHead, 16),
              Bytes("00 00 00 01 6D 64 61 74") + BigEndian(media_end - kMediaHead, 8));
    const IsoFile index(file.At(media_end));
    EXPECT_EQ(index.Layout(), "moov");
    EXPECT_TRUE(index.Has(IsoFile::Table(0, "co64")));
    EXPECT_FALSE(index.Has(IsoFile::Table(0, "stco")));
    EXPECT_EQ(index.Offsets(0), killed.places);
    EXPECT_EQ(index.Sizes(0), std::vector<uint64_t>(7, kPicture));
}

// A fragment's media begins less than a GiB behind that of the one before.
TEST(HybridLarge, FragmentsFurtherApartAreRefused) {
    const KilledRecording small(2, 8);
    const uint64_t around = small.places[1] - small.places[0] - 8;
    constexpr uint64_t kFarthest = 0x3FFFFFFF;
    KilledRecording far(2, kFarthest - around);
    ASSERT_EQ(far.places[1] - far.places[0], kFarthest);
    EXPECT_EQ(far.Repair(MX_OK).fragments, 2u);
    KilledRecording too_far(2, kFarthest - around + 1);
    const MXHybridRepair refused = too_far.Repair(MX_FAILED);
    EXPECT_EQ(refused.state, uint32_t{MX_HYBRID_REFUSED});
    EXPECT_STREQ(refused.message, "the fragment is too large");
}

// 256 MiB of moof are none, and not looked at.
TEST(HybridLarge, AHeadOfMoreThanAnyFragmentIsRefused) {
    KilledRecording killed(1, 8);
    killed.file.Append(Bytes("10 00 00 01") + test::Text("moof"));
    killed.file.length += 0x10000000;
    EXPECT_STREQ(killed.Repair(MX_FAILED).message, "the fragment does not hold together");
}

// What is given stays small: a picture of 32 MiB, 136 times.
TEST(HybridLarge, AClosedOneHasWidePlaces) {
    constexpr uint64_t kPicture = 32u << 20;
    struct Closed {
        std::vector<uint64_t> places;
        uint64_t index_at = 0;
        ByteVector index;
        ByteVector head;
        int64_t head_at = 0;
    } closed;
    MXCreateParam param{};
    param.user = &closed;
    param.output = [](const MXOutputBlock* block, void* user) {
        Closed& to = *static_cast<Closed*>(user);
        const auto* const bytes = static_cast<const uint8_t*>(block->data);
        const auto kind = reinterpret_cast<const MXExactBlock*>(block)->kind;
        if (kind == MX_BLOCK_MEDIA)
            to.places.push_back(static_cast<uint64_t>(block->offset) + block->length - kPicture);
        if (kind == MX_BLOCK_INDEX) {
            if (to.index.empty()) to.index_at = static_cast<uint64_t>(block->offset);
            to.index.insert(to.index.end(), bytes, bytes + block->length);
        }
        to.head.assign(bytes, bytes + std::min<uint32_t>(block->length, 16));
        to.head_at = block->offset;
        return int32_t{0};
    };
    CHmp4Packet package(MX_FORMAT_HMP4, &param);
    EXPECT_EQ(package.SetFragmentParam({sizeof(MXFragmentParam), MX_FRAGMENT_DURATION, 1, MX_TRACKS_VIDEO, 0, 0}), 0u);
    package.init();
    EXPECT_EQ(package.createHeader(nullptr, 0), 0u);
    ByteVector picture(kPicture);
    MXFrameInfo frame = test::VideoFrame(picture, MX_VIDEO_MJPEG, MX_SUB_I);
    for (int64_t i = 0; i < 136; ++i) {
        MXSetFrameTimes(&frame, 90000, i * 3600, i * 3600, 3600);
        ASSERT_EQ(package.inputFrame(&frame, 0), 0u);
    }
    EXPECT_EQ(package.createTailer(nullptr, 0), 0u);
    ASSERT_EQ(closed.places.size(), 136u);
    ASSERT_GT(closed.index_at, uint64_t{0xFFFFFFFF});
    EXPECT_EQ(closed.index_at, closed.places.back() + kPicture);
    EXPECT_EQ(closed.head_at, int64_t{kMediaHead});
    EXPECT_EQ(closed.head, Bytes("00 00 00 01 6D 64 61 74") + BigEndian(closed.index_at - kMediaHead, 8));
    const IsoFile index(closed.index);
    EXPECT_EQ(index.Layout(), "moov");
    EXPECT_EQ(index.Offsets(0), closed.places);
    EXPECT_EQ(index.Sizes(0), std::vector<uint64_t>(136, kPicture));
}

}  // namespace
}  // namespace Orvane::Muxora
