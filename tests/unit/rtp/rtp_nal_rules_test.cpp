// The H.264 and H.265 packetisers against a slow one that goes through the whole frame first and then follows the rules
// step by step, on frames full of start codes and near misses.
#include <algorithm>
#include <memory>
#include <optional>

#include "rtp_fixture.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::ByteVector;
using test::Slice;

struct Expected {
    ByteVector payload;
    bool marker;
};

struct Session {
    int64_t max_length;
    int64_t extension;  // bytes of data
    int64_t custom;

    int64_t Header() const { return extension == 0 ? 12 : 16 + (extension + 3) / 4 * 4; }
};

bool CodeAt(const ByteVector& d, size_t i, size_t zeros) {
    if (i + zeros + 1 > d.size()) return false;
    return std::all_of(d.begin() + static_cast<std::ptrdiff_t>(i), d.begin() + static_cast<std::ptrdiff_t>(i + zeros),
                       [](uint8_t byte) { return byte == 0; }) &&
           d[i + zeros] == 1;
}

std::vector<int64_t> Positions(const ByteVector& d, size_t skip) {
    std::vector<int64_t> positions;
    for (size_t i = 0; i + 3 < d.size();) {
        const size_t size = CodeAt(d, i, 3) ? 4 : CodeAt(d, i, 2) ? 3 : 0;
        if (size != 0) positions.push_back(static_cast<int64_t>(i));
        i += size != 0 ? size + skip : 1;
    }
    return positions;
}

// Nothing: the room is too small.
std::optional<std::vector<Expected>> SlowH264(const ByteVector& frame, uint8_t behind, bool fragments,
                                              const Session& session) {
    std::vector<int64_t> list = Positions(frame, 1);
    ByteVector d = frame;
    d.push_back(behind);
    const auto length = static_cast<int64_t>(frame.size());
    const auto take = [&] {
        const int64_t first = list.front();
        list.erase(list.begin());
        return d[static_cast<size_t>(first + 2)] != 0 ? 3 : 4;
    };
    std::vector<Expected> out;
    int64_t room = session.max_length - 2;
    int64_t cursor = 0;
    if (!list.empty()) {
        cursor = list.front();
        cursor += take();
    }
    while (length - cursor >= 1) {
        const int64_t size = (list.empty() ? length : list.front()) - cursor;
        const int64_t l = session.extension;
        const bool fu = fragments && size + l + 12 + session.custom + (l + 3) / 4 * 4 > room;
        const uint8_t header = d[static_cast<size_t>(cursor)];
        if (fu) ++cursor;
        for (int64_t sent = 0; sent < size;) {
            room = session.max_length - 2 - session.custom;
            const int64_t two = fu ? 2 : 0;
            const bool full = size - sent + two > room - session.Header();
            const int64_t count = full ? room - session.Header() - two : size - sent;
            if (count < 1) return std::nullopt;
            Expected one{{}, !full && list.empty()};
            if (fu) {
                const int bits = !full ? 0x40 : sent == 0 ? 0x80 : 0;
                one.payload = {static_cast<uint8_t>((header & 0xE0) | 28), static_cast<uint8_t>((header & 31) | bits)};
            }
            const ByteVector bytes = Slice(d, static_cast<size_t>(cursor + sent), static_cast<size_t>(count));
            one.payload.insert(one.payload.end(), bytes.begin(), bytes.end());
            out.push_back(one);
            sent += count;
        }
        cursor += size;
        if (!list.empty()) cursor += take();
    }
    return out;
}

std::optional<std::vector<Expected>> SlowH265(const ByteVector& d, const Session& session) {
    const std::vector<int64_t> list = Positions(d, 0);
    std::vector<Expected> out;
    const int64_t prefix = session.custom != 0 ? 2 : 0;
    const int64_t room = session.max_length - prefix - session.custom - session.Header();
    int64_t k = 4;
    for (size_t i = 0; i < list.size(); ++i) {
        const int64_t p = list[i];
        const int64_t end = i + 1 < list.size() ? list[i + 1] : static_cast<int64_t>(d.size());
        if (d[static_cast<size_t>(p + 2)] == 1) k = 3;
        bool fu = false;
        bool first = true;
        for (int64_t left = end - p - k - 2; left > 0; first = false) {
            if (room < 1) return std::nullopt;
            fu = fu || left > room;
            const int64_t count = std::min(left, room);
            const uint8_t byte = d[static_cast<size_t>(p + k)];
            Expected one{{byte, d[static_cast<size_t>(p + k + 1)]}, false};
            if (fu) {
                one.payload[0] = static_cast<uint8_t>((byte & 0x81) | 0x62);
                const int bits = (first ? 0x80 : 0) | (left <= room ? 0x40 : 0);
                one.payload.push_back(static_cast<uint8_t>(((byte >> 1) & 63) | bits));
                one.marker = left <= room && i + 1 == list.size();
            }
            const ByteVector bytes = Slice(d, static_cast<size_t>(end - left), static_cast<size_t>(count));
            one.payload.insert(one.payload.end(), bytes.begin(), bytes.end());
            out.push_back(one);
            left -= count;
        }
    }
    return out;
}

class RtpNalRules : public RtpTest {
  protected:
    // A frame with few, some or many start codes, in a block that ends where the frame may be read to.
    static ByteVector Noise(std::mt19937& random) {
        ByteVector frame = test::ZeroRichBytes(random, random() % 1500 + 1);
        const uint32_t keep = 1u << random() % 8;
        for (uint8_t& byte : frame) {
            if (byte <= 1 && random() % keep != 0) byte = static_cast<uint8_t>(random());
        }
        for (uint32_t i = static_cast<uint32_t>(random()) % 6; i > 0; --i) {
            if (frame.size() < 5) break;
            const size_t at = random() % (frame.size() - 4);
            std::fill_n(frame.begin() + static_cast<std::ptrdiff_t>(at), 3, uint8_t{0});
            frame[at + 2 + random() % 2] = 1;
        }
        return frame;
    }

    Session Draw(std::mt19937& random) {
        static const ByteVector bytes = Counting(64);
        const Session session{10 + static_cast<int64_t>(random() % (random() % 2 != 0 ? 200 : 1600)),
                              random() % 3 == 0 ? static_cast<int64_t>(random() % 60) : 0,
                              random() % 3 == 0 ? static_cast<int64_t>(random() % 30) : 0};
        Set("max_rtp_packet_length", session.max_length);
        packet.setExtData(bytes.data(), static_cast<uint32_t>(session.extension));
        packet.SetCustomData(bytes.data(), static_cast<uint32_t>(session.custom));
        return session;
    }

    void Compare(uint32_t result, const std::optional<std::vector<Expected>>& expected, Prefixed prefixed,
                 const Session& session) {
        ASSERT_EQ(result, expected ? 0u : 3u);
        const std::vector<Packet> packets = Packets(prefixed, static_cast<size_t>(session.custom));
        ASSERT_EQ(packets.size(), expected ? expected->size() : 0);
        for (size_t i = 0; i < packets.size(); ++i) {
            ASSERT_EQ(packets[i].payload, (*expected)[i].payload) << i;
            ASSERT_EQ(packets[i].marker, (*expected)[i].marker) << i;
            if (prefixed == Prefixed::kYes) {
                ASSERT_EQ(packets[i].prefix, packets[i].rtp_length);
            }
        }
        sink.Clear();
    }
};

TEST_F(RtpNalRules, H264) {
    std::mt19937 random(21);
    for (int round = 0; round < 6000; ++round) {
        const Session session = Draw(random);
        const ByteVector frame = Noise(random);
        const uint32_t sub_type = static_cast<uint32_t>(random() % 3);
        // A block of the exact size: the memory checker sees a second byte behind the frame.
        const auto block = std::make_unique<uint8_t[]>(frame.size() + 1);
        std::copy(frame.begin(), frame.end(), block.get());
        block[frame.size()] = 0xEE;
        ByteVector dummy(1);
        MXFrameInfo record = test::VideoFrame(dummy, MX_VIDEO_H264, sub_type, 40);
        record.frame_pointer = block.get();
        record.frame_size = static_cast<uint32_t>(frame.size());
        const uint32_t result = packet.inputFrame(&record, 0);
        Compare(result, SlowH264(frame, 0xEE, sub_type < 2, session), Prefixed::kYes, session);
        ASSERT_FALSE(HasFatalFailure()) << "round " << round;
    }
}

TEST_F(RtpNalRules, H265) {
    std::mt19937 random(22);
    for (int round = 0; round < 6000; ++round) {
        const Session session = Draw(random);
        const ByteVector frame = Noise(random);
        const auto block = std::make_unique<uint8_t[]>(frame.size());
        std::copy(frame.begin(), frame.end(), block.get());
        ByteVector dummy(1);
        MXFrameInfo record = test::VideoFrame(dummy, MX_VIDEO_H265, MX_SUB_I, 40);
        record.frame_pointer = block.get();
        record.frame_size = static_cast<uint32_t>(frame.size());
        const uint32_t result = packet.inputFrame(&record, 0);
        Compare(result, SlowH265(frame, session), session.custom != 0 ? Prefixed::kYes : Prefixed::kNo, session);
        ASSERT_FALSE(HasFatalFailure()) << "round " << round;
    }
}

// The caller's packet may be too small for a whole packet's copy ahead of its header, and still hold the frame.
TEST_F(RtpNalRules, H264IntoAPacketThatIsJustLargeEnough) {
    std::mt19937 random(23);
    for (int round = 0; round < 500; ++round) {
        const Session session = Draw(random);
        ByteVector frame = Noise(random);
        const auto expected = SlowH264(frame, 0xEE, true, session);
        if (!expected) continue;
        size_t size = 0;
        for (const Expected& one : *expected)
            size += static_cast<size_t>(session.custom + 2 + session.Header()) + one.payload.size();
        frame.push_back(0xEE);
        MXFrameInfo record = test::VideoFrame(frame, MX_VIDEO_H264, MX_SUB_P, 40);
        --record.frame_size;
        Basalt::CPacket small(size - 1);
        ASSERT_EQ(packet.inputFrameEx(&record, small), size == 0 ? 0u : 3u);
        ASSERT_TRUE(sink.blocks.empty());
        Basalt::CPacket exact(size);
        const uint32_t result = packet.inputFrameEx(&record, exact);
        Compare(result, expected, Prefixed::kYes, session);
        ASSERT_FALSE(HasFatalFailure()) << "round " << round;
        ASSERT_EQ(exact.size(), size);
    }
}

}  // namespace
}  // namespace Orvane::Muxora
