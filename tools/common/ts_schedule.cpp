#include "common/ts_schedule.h"

namespace Orvane::Muxora::Tools {

namespace {

constexpr int64_t kClockRange = (int64_t{1} << 33) * 300;  // where the PCR starts again
constexpr int64_t kTicksInUs = 27;
// No stream is silent for longer: a step of more is a new clock.
constexpr int64_t kLongestStepUs = 10000000;

}  // namespace

// ISO/IEC 13818-1 2.4.3.4: the program clock reference of the packet, if it has one.
std::optional<int64_t> TsSchedule::ClockOf(std::span<const uint8_t> packet) {
    constexpr uint8_t kAdaptationField = 0x20;
    constexpr uint8_t kPcrFlag = 0x10;
    constexpr uint8_t kFlagsAndPcr = 7;
    if ((packet[3] & kAdaptationField) == 0 || packet[4] < kFlagsAndPcr || (packet[5] & kPcrFlag) == 0) return {};
    const auto pid = static_cast<uint16_t>((packet[1] & 0x1F) << 8 | packet[2]);
    if (clock_pid_.value_or(pid) != pid) return {};
    clock_pid_ = pid;
    const int64_t base = static_cast<int64_t>(packet[6]) << 25 | static_cast<int64_t>(packet[7]) << 17 |
                         static_cast<int64_t>(packet[8]) << 9 | static_cast<int64_t>(packet[9]) << 1 | packet[10] >> 7;
    return base * 300 + ((packet[10] & 1) << 8 | packet[11]);
}

void TsSchedule::Put(std::span<const uint8_t> packets) {
    for (; packets.size() >= kPacket; packets = packets.subspan(kPacket)) {
        const auto packet = packets.first(kPacket);
        if (const auto clock = ClockOf(packet)) {
            int64_t step_us = 0;
            if (last_clock_) step_us = (*clock - *last_clock_ + kClockRange) % kClockRange / kTicksInUs;
            if (step_us > kLongestStepUs) step_us = 0;
            last_clock_ = clock;
            Release(step_us);
        }
        waiting_.insert(waiting_.end(), packet.begin(), packet.end());
    }
}

void TsSchedule::Release(int64_t interval_us) {
    const auto count = static_cast<int64_t>(waiting_.size() / kPacket);
    if (count != 0) packet_ns_ = interval_us * 1000 / count;
    for (int64_t i = 0; i < count; ++i) {
        Send(std::span(waiting_).subspan(static_cast<size_t>(i) * kPacket, kPacket), last_us_ + i * packet_ns_ / 1000);
    }
    waiting_.clear();
    last_us_ += interval_us;
}

void TsSchedule::Send(std::span<const uint8_t> packet, int64_t due_us) {
    if (datagram_.empty()) datagram_us_ = due_us;
    datagram_.insert(datagram_.end(), packet.begin(), packet.end());
    if (datagram_.size() < kDatagram) return;
    sink_(datagram_, datagram_us_);
    datagram_.clear();
}

void TsSchedule::End() {
    // At the pace of those before.
    const auto count = static_cast<int64_t>(waiting_.size() / kPacket);
    Release(count * packet_ns_ / 1000);
    if (!datagram_.empty()) sink_(datagram_, datagram_us_);
    datagram_.clear();
}

}  // namespace Orvane::Muxora::Tools
