// The parameters of an RTP packager, by record and by key. Both ways fill the same fields.
#include <string_view>
#include <utility>

#include "rtp/rtp_packet.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kCustomLengthMask = 0xFF;
constexpr uint32_t kMaxAudioCustomLength = 4;

// Copies `data` unless it is the copy that is held. False for null.
bool Keep(std::vector<uint8_t>& held, const void* data, uint32_t length) {
    if (data == nullptr) return false;
    if (data == held.data()) return true;
    const auto* bytes = static_cast<const uint8_t*>(data);
    held = std::vector<uint8_t>(bytes, bytes + length);
    return true;
}

}  // namespace

void CRtpPacket::SetRtpParam(const MXRtpParam& param) {
    max_rtp_packet_length_ = param.max_rtp_packet_length;
    video_.sequence = static_cast<uint16_t>(param.rtp_sequence_number);
    clock_.video_start = param.rtp_timestamp;
    video_.ssrc = param.rtp_ssrc;
    clock_.SetAudioSample(param.rtp_audio_sample);
    video_.payload_type = param.rtp_payload_type;
    setExtData(param.rtp_extension_data, param.rtp_extension_data_length);
    SetCustomData(param.rtp_custom_data, param.rtp_custom_data_length);
    rtp_packet_output_all_flag_ = param.rtp_packet_output_all_flag;
    audio_.payload_type = param.rtp_audio_payload_type;
    SetAudioCustomData(param.rtp_audio_custom_data, param.rtp_audio_custom_data_length);
    audio_.sequence = static_cast<uint16_t>(param.rtp_audio_sequence_number);
    clock_.audio_start = param.rtp_audio_timestamp;
    audio_.ssrc = param.rtp_audio_ssrc;
}

void CRtpPacket::GetRtpParam(MXRtpParam& param) const {
    param.size = sizeof param;
    param.max_rtp_packet_length = MaxLength();
    param.rtp_sequence_number = video_.sequence;
    param.rtp_timestamp = clock_.video_start;
    param.rtp_ssrc = video_.ssrc;
    param.rtp_audio_sample = clock_.AudioSample();
    param.rtp_payload_type = video_.payload_type;
    param.rtp_extension_data = extension_.Data();
    param.rtp_extension_data_length = extension_.Length();
    if (param.rtp_custom_data != nullptr) param.rtp_custom_data = video_.custom_data.data();
    param.rtp_custom_data_length = static_cast<uint32_t>(video_.custom_data.size());
    param.rtp_packet_output_all_flag = rtp_packet_output_all_flag_;
    param.rtp_audio_payload_type = audio_.payload_type;
    param.rtp_audio_sequence_number = audio_.sequence;
    param.rtp_audio_timestamp = clock_.audio_start;
    param.rtp_audio_ssrc = audio_.ssrc;
}

void CRtpPacket::SetRtpValue(const char* key, int64_t value) {
    if (key == nullptr) return;
    const std::string_view name(key);
    const auto narrow = static_cast<uint32_t>(value);
    if (name == "max_rtp_packet_length") max_rtp_packet_length_ = narrow;
    if (name == "rtp_sequence_number") video_.sequence = static_cast<uint16_t>(value);
    if (name == "rtp_timestamp") clock_.video_start = narrow;
    if (name == "rtp_ssrc") video_.ssrc = narrow;
    if (name == "rtp_audio_sample") clock_.SetAudioSample(narrow);
    if (name == "rtp_payload_type") video_.payload_type = narrow;
    if (name == "rtp_packet_output_all_flag") rtp_packet_output_all_flag_ = narrow;
    if (name == "rtp_audio_payload_type") audio_.payload_type = narrow;
    // "rtp_encode_type" is taken from callers that still give it, and means nothing.
}

void CRtpPacket::GetRtpValue(const char* key, int64_t& value) const {
    if (key == nullptr) return;
    const std::string_view name(key);
    if (name == "max_rtp_packet_length") value = MaxLength();
    if (name == "rtp_sequence_number") value = video_.sequence;
    if (name == "rtp_timestamp") value = clock_.video_start;
    if (name == "rtp_ssrc") value = video_.ssrc;
    if (name == "rtp_audio_sample") value = clock_.AudioSample();
    if (name == "rtp_payload_type") value = video_.payload_type;
    if (name == "rtp_packet_output_all_flag") value = rtp_packet_output_all_flag_;
    if (name == "rtp_audio_payload_type") value = audio_.payload_type;
}

bool CRtpPacket::SetCustomData(const void* data, uint32_t length) {
    return Keep(video_.custom_data, data, length & kCustomLengthMask);
}

bool CRtpPacket::SetAudioCustomData(const void* data, uint32_t length) {
    return length <= kMaxAudioCustomLength && Keep(audio_.custom_data, data, length);
}

}  // namespace Orvane::Muxora
