#include "exact/ts_multiplex.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "codec/full_packets.h"
#include "codec/mpeg_clock.h"

namespace Orvane::Muxora {

namespace {

constexpr uint8_t kRandomAccessFlag = 0x40;
constexpr uint8_t kPcrFlag = 0x10;
constexpr uint32_t kFlagsSize = 2;  // adaptation_field_length and the flags
constexpr uint32_t kPcrSize = 6;
// A longer silence than this is not filled: it is a break.
constexpr int64_t kLongestSilence = 60 * int64_t{kTicksPerSecond};

}  // namespace

bool CTsMultiplex::SetStreams(uint8_t video, uint8_t audio) {
    if (video == video_ && audio == audio_) return false;
    // The first map is no new version.
    if (video_ != 0 || audio_ != 0) pmt_version_ = (pmt_version_ + 1) & 0x1F;
    video_ = video;
    audio_ = audio;
    PsiStream streams[2];
    size_t count = 0;
    if (video_ != 0) streams[count++] = {video_, kVideoPid};
    if (audio_ != 0) streams[count++] = {audio_, kAudioPid};
    pmt_ = MakePmt(kPmtPid, PcrPid(), {streams, count}, pmt_version_);
    return true;
}

std::span<const uint8_t> CTsMultiplex::Tables() {
    uint8_t* const begin = buffer_.Data();
    return {begin, PutTables(begin, table_time_)};
}

// Does the line of time begin with the frame, or begin anew?
bool CTsMultiplex::Begins(const Unit& unit) const {
    return !started_ || unit.time - pcr_time_ > kLongestSilence;
}

bool CTsMultiplex::Reserve(const Unit& unit) {
    // Each step of silence is a PCR and at most two tables; a PES packet wastes less than a packet at either end.
    const int64_t passed = Begins(unit) ? kPcrPeriod : std::max<int64_t>(unit.time - pcr_time_, 0);
    const uint64_t steps = static_cast<uint64_t>(passed) / kPcrPeriod;
    const uint64_t packets = 3 * steps + 2 + (unit.head.size() + unit.frame.size()) / kPlainPayload + 3;
    return packets * kTsPacketSize <= INT32_MAX &&
           buffer_.Reserve(static_cast<uint32_t>(packets * kTsPacketSize)) == MX_OK;
}

std::span<const uint8_t> CTsMultiplex::Packets(const Unit& unit) {
    if (Begins(unit)) {
        started_ = true;
        pcr_time_ = unit.time - kPcrPeriod;
        table_time_ = unit.time - kTablePeriod;  // they are due
    }
    uint8_t* const begin = buffer_.Data();
    uint8_t* at = PassTime(begin, unit.time);
    // The next chance for tables comes within a PCR period.
    if (unit.random_access || unit.time - table_time_ > kTablePeriod - kPcrPeriod) {
        at = PutTables(at, std::max(unit.time, table_time_));
    }
    const bool with_pcr = unit.pid == PcrPid() && unit.time > pcr_time_;
    if (with_pcr) pcr_time_ = unit.time;
    return {begin, Cut(at, unit, with_pcr)};
}

// Where frames are further apart than a PCR may be, packets with nothing but a PCR stand between them.
uint8_t* CTsMultiplex::PassTime(uint8_t* at, int64_t time) {
    while (time - pcr_time_ > kPcrPeriod) {
        pcr_time_ += kPcrPeriod;
        if (pcr_time_ - table_time_ > kTablePeriod - kPcrPeriod) at = PutTables(at, pcr_time_);
        at = PutPcrPacket(at, pcr_time_);
    }
    return at;
}

uint8_t* CTsMultiplex::PutTables(uint8_t* at, int64_t time) {
    CopyTable(pat_, pat_continuity_, at);
    CopyTable(pmt_, pmt_continuity_, at + kTsPacketSize);
    table_time_ = time;
    return at + 2 * kTsPacketSize;
}

// No payload, so the continuity counter stays that of the packet before (2.4.3.3).
uint8_t* CTsMultiplex::PutPcrPacket(uint8_t* at, int64_t time) {
    const uint16_t pid = PcrPid();
    std::array<uint8_t, kTsPacketSize> packet;
    PutTsHeader(packet.data(), false, pid, AdaptationControl::kFieldOnly, Continuity(pid) - 1u);
    ByteCursor field = BehindTsHeader(packet.data());
    field
        .U8(kPlainPayload - 1)  // adaptation_field_length
        .U8(kPcrFlag);
    PutPcr(field, static_cast<uint64_t>(time + kTimeOffset - kPcrDelay));
    field.Fill(0xFF, kPlainPayload - kFlagsSize - kPcrSize);
    std::memcpy(at, packet.data(), kTsPacketSize);
    return at + kTsPacketSize;
}

uint8_t* CTsMultiplex::Cut(uint8_t* at, const Unit& unit, bool with_pcr) {
    uint8_t& continuity = Continuity(unit.pid);
    std::span<const uint8_t> head = unit.head;
    std::span<const uint8_t> frame = unit.frame;
    const auto flags = static_cast<uint8_t>((unit.random_access ? kRandomAccessFlag : 0) | (with_pcr ? kPcrFlag : 0));
    for (bool first = true; !head.empty() || !frame.empty(); first = false) {
        if (!first && head.empty() && frame.size() >= kPlainPayload) {
            const auto count = static_cast<uint32_t>(frame.size() / kPlainPayload);
            CutPlainPackets(at, frame.data(), count, unit.pid, continuity);
            continuity = static_cast<uint8_t>((continuity + count) & kContinuityMask);
            at += size_t{count} * kTsPacketSize;
            frame = frame.subspan(size_t{count} * kPlainPayload);
            continue;
        }
        const uint32_t field = first && flags != 0 ? kFlagsSize + (with_pcr ? kPcrSize : 0) : 0;
        const auto taken = static_cast<uint32_t>(std::min<size_t>(kPlainPayload - field, head.size() + frame.size()));
        const uint32_t field_size = kPlainPayload - taken;
        PutTsHeader(at, first, unit.pid,
                    field_size != 0 ? AdaptationControl::kFieldAndPayload : AdaptationControl::kPayloadOnly,
                    continuity);
        continuity = (continuity + 1) & kContinuityMask;
        ByteCursor out = BehindTsHeader(at);
        if (field_size != 0) {
            out.U8(static_cast<uint8_t>(field_size - 1));  // adaptation_field_length
            if (field_size > 1) out.U8(first ? flags : 0);
            if (field > kFlagsSize) PutPcr(out, static_cast<uint64_t>(unit.time + kTimeOffset - kPcrDelay));
            out.Fill(0xFF, field_size - out.Size());  // stuffing_byte
        }
        const auto from_head = static_cast<uint32_t>(std::min<size_t>(taken, head.size()));
        out.Bytes(head.data(), from_head).Bytes(frame.data(), taken - from_head);
        head = head.subspan(from_head);
        frame = frame.subspan(taken - from_head);
        at += kTsPacketSize;
    }
    return at;
}

}  // namespace Orvane::Muxora
