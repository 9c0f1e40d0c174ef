#pragma once

#include <cstdint>
#include <span>

#include "codec/psi_tables.h"
#include "core/grow_buffer.h"

namespace Orvane::Muxora {

// A transport stream of one program (ISO/IEC 13818-1) along a line of time: cuts PES packets into transport packets,
// and puts a PCR and the tables between them whenever they are due. Times are 90 kHz ticks of the media; what is
// written is the media's time plus kTimeOffset, and for the PCR less kPcrDelay.
class CTsMultiplex {
  public:
    // A second, so that times down to a second below 0 can be written.
    static constexpr int64_t kTimeOffset = 90000;
    // From the arrival of a frame to its decoding: half a second, which bounds how far one stream may come behind the
    // other.
    static constexpr int64_t kPcrDelay = 45000;
    static constexpr int64_t kPcrPeriod = 3600;    // 40 ms
    static constexpr int64_t kTablePeriod = 9000;  // 100 ms
    static constexpr uint16_t kPmtPid = 0x1000;
    static constexpr uint16_t kVideoPid = 0x0100;
    static constexpr uint16_t kAudioPid = 0x0101;

    // A frame in two pieces: the PES header with what goes in front of the frame, and the frame.
    struct Unit {
        std::span<const uint8_t> head;
        std::span<const uint8_t> frame;
        uint16_t pid = kVideoPid;
        int64_t time = 0;            // of decoding
        bool random_access = false;  // the tables stand ahead of it, too
    };

    // Which streams there are, by stream_type; 0: no such stream. True if the map changes.
    bool SetStreams(uint8_t video, uint8_t audio);
    uint8_t video() const { return video_; }
    uint8_t audio() const { return audio_; }

    // Room for the frame, which Tables and Packets need; false when memory ran out, and nothing is changed.
    bool Reserve(const Unit& unit);
    // Both tables. What is given back by these two is good until the next call of either.
    std::span<const uint8_t> Tables();
    // The frame, and ahead of it what the time that has passed asks for.
    std::span<const uint8_t> Packets(const Unit& unit);

  private:
    bool Begins(const Unit& unit) const;
    uint16_t PcrPid() const { return video_ != 0 ? kVideoPid : kAudioPid; }
    uint8_t& Continuity(uint16_t pid) { return pid == kVideoPid ? video_continuity_ : audio_continuity_; }
    uint8_t* PutTables(uint8_t* at, int64_t time);
    uint8_t* PutPcrPacket(uint8_t* at, int64_t time);
    uint8_t* PassTime(uint8_t* at, int64_t time);
    uint8_t* Cut(uint8_t* at, const Unit& unit, bool with_pcr);

    CGrowBuffer buffer_;
    uint8_t video_ = 0;
    uint8_t audio_ = 0;
    TsTable pat_ = MakePat(kPmtPid);
    TsTable pmt_{};
    uint8_t pmt_version_ = 0;
    uint8_t pat_continuity_ = 0;
    uint8_t pmt_continuity_ = 0;
    uint8_t video_continuity_ = 0;
    uint8_t audio_continuity_ = 0;
    bool started_ = false;
    int64_t pcr_time_ = 0;    // of the last PCR, or of the first frame
    int64_t table_time_ = 0;  // of the last tables
};

}  // namespace Orvane::Muxora
