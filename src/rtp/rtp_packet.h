#pragma once

#include <cstdint>
#include <span>

#include "core/package.h"
#include "core/rtp_params.h"
#include "rtp/packet_run.h"
#include "rtp/rtp_clock.h"

namespace Orvane::Muxora {

// RTP packets (RFC 3550) of one video and one audio stream. The streams share the output and the header extension; each
// has its own SSRC, sequence numbers, timestamps, payload type and custom data. A frame's packets are built back to
// back in one buffer first and given out then, one by one or all at once.
//
// A frame that fails sends nothing; its timestamps and the sequence numbers that it used are gone.
class CRtpPacket : public CPackage, public IRtpParams {
  public:
    explicit CRtpPacket(uint32_t format, const MXCreateParam* param = nullptr);

    uint32_t init() override { return MX_OK; }
    uint32_t uninit() override { return MX_OK; }
    uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) override;
    uint32_t inputFrameEx(MXFrameInfo* frame, Basalt::CPacket& packet) override;
    uint32_t inputFrame(MXFrameInfo* frame, uint32_t reserved) override;
    uint32_t createTailer(const void* info, uint32_t unused) override;
    uint32_t setExtData(const void* data, uint32_t length) override;
    uint32_t getExtData(const void** data, uint32_t* length) override;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

    void SetRtpParam(const MXRtpParam& param) override;
    void GetRtpParam(MXRtpParam& param) const override;
    void SetRtpValue(const char* key, int64_t value) override;
    void GetRtpValue(const char* key, int64_t& value) const override;
    bool SetCustomData(const void* data, uint32_t length) override;
    bool SetAudioCustomData(const void* data, uint32_t length) override;

  private:
    uint32_t CheckInput(const MXFrameInfo* frame) const;
    uint32_t PackVideo(MXFrameInfo& frame, std::span<uint8_t> area);
    uint32_t PackAudio(MXFrameInfo& frame, std::span<uint8_t> area, bool swap_pcm);
    uint32_t Packetise(const MXFrameInfo& frame);
    uint32_t MaxLength() const;
    void Begin(std::span<uint8_t> area, RtpStream& stream);
    void Send();
    void sendAll();
    void sendPackets();

    RtpStream video_;
    RtpStream audio_;
    RtpClock clock_;
    HeaderExtension extension_;
    uint32_t max_rtp_packet_length_ = 0;
    uint32_t rtp_packet_output_all_flag_ = 0;
    LargeBuffer own_buffer_;
    PacketRun run_;
};

}  // namespace Orvane::Muxora
