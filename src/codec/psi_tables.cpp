#include "codec/psi_tables.h"

#include <cstring>

#include "codec/crc32.h"

namespace Orvane::Muxora {

namespace {

constexpr uint16_t kSectionFlags = 0xB000;  // section_syntax_indicator, reserved bits; section_length goes below
constexpr uint16_t kPidFlags = 0xE000;      // reserved bits in front of a PID
constexpr uint8_t kVersionFlags = 0xC1;     // reserved bits, current_next_indicator; version_number goes between
constexpr uint16_t kNoDescriptors = 0xF000;
constexpr uint16_t kProgramNumber = 1;

// A packet that begins with a section.
class TableWriter {
  public:
    TableWriter(uint16_t pid, uint8_t table_id, uint16_t section_length) {
        PutTsHeader(table_.data(), true, pid, AdaptationControl::kPayloadOnly, 0);
        cursor_
            .U8(0)  // pointer_field
            .U8(table_id)
            .BE16(kSectionFlags | section_length);
    }
    TableWriter(const TableWriter&) = delete;
    TableWriter& operator=(const TableWriter&) = delete;

    ByteCursor& Cursor() { return cursor_; }

    // The CRC over the section, and stuffing to the end of the packet.
    const TsTable& Finish() {
        cursor_.BE32(Crc32Mpeg2(cursor_.Data() + 1, cursor_.Size() - 1));
        cursor_.Fill(0xFF, kTsPacketSize - kTsHeaderSize - cursor_.Size());
        return table_;
    }

  private:
    TsTable table_{};
    ByteCursor cursor_ = BehindTsHeader(table_.data());
};

}  // namespace

TsTable MakePat(uint16_t pmt_pid) {
    TableWriter table(kPatPid, 0x00, 13);
    table.Cursor()
        .BE16(1)  // transport_stream_id
        .U8(kVersionFlags)
        .BE16(0)  // section_number, last_section_number
        .BE16(kProgramNumber)
        .BE16(kPidFlags | pmt_pid);  // program_map_PID
    return table.Finish();
}

TsTable MakePmt(uint16_t pmt_pid, uint16_t pcr_pid, std::span<const PsiStream> streams, uint8_t version) {
    constexpr uint16_t kFixedLength = 13;
    constexpr uint16_t kEntryLength = 5;
    TableWriter table(pmt_pid, 0x02, static_cast<uint16_t>(kFixedLength + kEntryLength * streams.size()));
    table.Cursor()
        .BE16(kProgramNumber)
        .U8(static_cast<uint8_t>(kVersionFlags | (version & 0x1F) << 1))
        .BE16(0)                    // section_number, last_section_number
        .BE16(kPidFlags | pcr_pid)  // PCR_PID
        .BE16(kNoDescriptors);      // program_info_length
    for (const PsiStream& stream : streams) {
        table.Cursor()
            .U8(stream.stream_type)
            .BE16(kPidFlags | stream.pid)  // elementary_PID
            .BE16(kNoDescriptors);         // ES_info_length
    }
    return table.Finish();
}

void CopyTable(const TsTable& table, uint8_t& continuity, uint8_t* out) {
    std::memcpy(out, table.data(), kTsPacketSize);
    out[kContinuityAt] = ControlByte(AdaptationControl::kPayloadOnly, continuity);
    continuity = (continuity + 1) & kContinuityMask;
}

}  // namespace Orvane::Muxora
