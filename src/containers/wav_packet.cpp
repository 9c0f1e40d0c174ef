#include "containers/wav_packet.h"

#include "core/byte_writer.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kHeaderSize = 44;
constexpr uint32_t kRiffHeaderSize = 8;
constexpr uint32_t kFormatChunkSize = 16;
// Readers rely on this: whatever the frames are, the header says 16-bit mono PCM at 8000 Hz.
constexpr uint16_t kFormatTag = 1;
constexpr uint16_t kChannels = 1;
constexpr uint32_t kSamplesPerSec = 8000;
constexpr uint16_t kBlockAlign = 2;
constexpr uint16_t kBitsPerSample = 16;

constexpr MXCapacityEntry kEncodeAudio[] = {{MX_AUDIO_ALAW, 0, 0, 0, {}}, {MX_AUDIO_PCM16, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecAudio[] = {{28, 0, 0, 0, {}}, {30, 0, 0, 0, {}}};

}  // namespace

uint32_t CWavPacket::createHeader(MXHeaderInfo* /*info*/, uint32_t /*unused*/) {
    total_size_ += WriteHeader();
    return MX_OK;
}

uint32_t CWavPacket::inputFrame(MXFrameInfo* frame, uint32_t /*reserved*/) {
    if (!HasData(frame)) return MX_FAILED;
    if (!header_written_) return MX_FAILED;
    if (!checkFrame(frame)) return MX_FRAME_REFUSED;
    if (!started_) {
        // Readers rely on this: the first frame brings the header again and is itself left out of the file.
        WriteHeader();
        started_ = true;
        return MX_OK;
    }
    total_size_ += EmitAt(frame->frame_pointer, frame->frame_size, total_size_);
    return MX_OK;
}

uint32_t CWavPacket::createTailer(const void* /*info*/, uint32_t /*unused*/) {
    if (!header_written_) return MX_FAILED;
    WriteHeader();
    return MX_OK;
}

uint32_t CWavPacket::getBackup(MXOutputBlock* /*block*/) {
    return 0;
}

bool CWavPacket::checkFrame(const MXFrameInfo* frame) const {
    return frame->frame_type == MX_FRAME_AUDIO &&
           (frame->encode_type == MX_AUDIO_ALAW || frame->encode_type == MX_AUDIO_PCM16);
}

uint32_t CWavPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, {}, kEncodeAudio, table, count);
}

uint32_t CWavPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, {}, kCodecAudio, table, count);
}

// Multimedia Programming Interface and Data Specifications 1.0, "Waveform Audio File Format". Before there is a byte in
// the file the two sizes wrap below zero; the tail puts them right.
uint32_t CWavPacket::WriteHeader() {
    uint8_t area[kHeaderSize];
    ByteCursor out(area);
    out.Text("RIFF")
        .LE32(total_size_ - kRiffHeaderSize)  // RIFF size
        .Text("WAVE")
        .Text("fmt ")
        .LE32(kFormatChunkSize)
        .LE16(kFormatTag)                      // wFormatTag
        .LE16(kChannels)                       // nChannels
        .LE32(kSamplesPerSec)                  // nSamplesPerSec
        .LE32(kChannels * kSamplesPerSec * 2)  // nAvgBytesPerSec
        .LE16(kBlockAlign)                     // nBlockAlign
        .LE16(kBitsPerSample)                  // wBitsPerSample
        .Text("data")
        .LE32(total_size_ - kHeaderSize);  // data size
    header_written_ = true;
    return EmitAt(area, out.Size(), 0);
}

}  // namespace Orvane::Muxora
