// When which packets of an MPEG-2 transport stream are to be sent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace Orvane::Muxora::Tools {

// Cuts the stream into datagrams of seven packets, and times each by the stream's own clock: the PCR (ISO/IEC 13818-1
// 2.4.3.5) says when its packet reaches the decoder, and the packets between two of them come evenly.
class TsSchedule {
  public:
    static constexpr size_t kPacket = 188;
    static constexpr size_t kDatagram = 7 * kPacket;

    // Takes a datagram, and when it is due: microseconds from the first PCR on.
    using Sink = std::function<void(std::span<const uint8_t> datagram, int64_t due_us)>;
    explicit TsSchedule(Sink sink) : sink_(std::move(sink)) {}

    // Whole packets, as the library writes them. What lies between two PCRs waits for the second.
    void Put(std::span<const uint8_t> packets);
    // Nothing follows.
    void End();

  private:
    std::optional<int64_t> ClockOf(std::span<const uint8_t> packet);
    void Release(int64_t interval_us);
    void Send(std::span<const uint8_t> packet, int64_t due_us);

    Sink sink_;
    std::optional<uint16_t> clock_pid_;
    std::optional<int64_t> last_clock_;  // ticks of 27 MHz
    int64_t last_us_ = 0;                // its moment
    int64_t packet_ns_ = 0;              // between two packets, last time
    std::vector<uint8_t> waiting_;       // since the last PCR
    std::vector<uint8_t> datagram_;
    int64_t datagram_us_ = 0;
};

}  // namespace Orvane::Muxora::Tools
