#include "relay/unit.h"

#include <cmath>
#include <stdexcept>

namespace Orvane::Muxora::Gateway {

UnitWriter::UnitWriter() {
    MXCreateParam param{};
    param.user = this;
    param.output = Output;
    handle_.reset(MX_CreateHandle(MX_FORMAT_OVX, &param));
    MXHeaderInfo header{};
    header.size = sizeof header;
    if (handle_ == nullptr || MX_CreateHeader(handle_.get(), &header) != MX_OK) {
        throw std::runtime_error("the library does not make units (ovx)");
    }
}

std::span<const uint8_t> UnitWriter::Write(const Frame& frame) {
    unit_.clear();
    // Without a cipher the format reads the frame in place and leaves it as it is.
    MXFrameInfo info = const_cast<Tools::MediaFrame&>(frame.media).Record();
    // A unit's own times are coarse: the shown time in milliseconds, and the calendar's second. The headers have the
    // rest.
    info.timestamp = static_cast<uint32_t>(
        static_cast<int64_t>(std::llround(static_cast<double>(frame.pts) / frame.time_scale * 1000)));
    info.utc_time = static_cast<uint32_t>(frame.arrival_us / 1000000);
    MX_InputFrame(handle_.get(), &info);
    return unit_;
}

int32_t UnitWriter::Output(const MXOutputBlock* block, void* user) {
    const auto* bytes = static_cast<const uint8_t*>(block->data);
    auto& unit = static_cast<UnitWriter*>(user)->unit_;
    unit.insert(unit.end(), bytes, bytes + block->length);
    return 0;
}

std::optional<Frame> UnitReader::Read(std::span<const uint8_t> unit, const RelayNote& note) {
    OvxReader::Reader reader(unit);
    const auto piece = reader.Next();
    if (!piece || !piece->Intact() || piece->length != unit.size()) return std::nullopt;
    Frame frame;
    Tools::MediaFrame& media = frame.media;
    if (piece->head.IsAudio()) {
        const Tools::OvxSound sound = Tools::SoundOf(*piece);
        media.type = MX_FRAME_AUDIO;
        media.codec = sound.codec;
        media.channels = sound.channels;
        media.bits_per_sample = sound.bits_per_sample;
        media.samples_per_sec = note.samples_per_sec != 0 ? note.samples_per_sec : sound.samples_per_sec;
        if (media.samples_per_sec == 0) return std::nullopt;
    } else {
        if (const auto picture = Tools::PictureOf(*piece)) picture_ = *picture;
        media.type = MX_FRAME_VIDEO;
        media.codec = picture_.codec;
        media.sub_type = Tools::SubTypeOf(*piece);
        media.width = picture_.width;
        media.height = picture_.height;
        media.frame_rate = picture_.frame_rate;
    }
    if (media.codec == 0) return std::nullopt;
    media.SetBytes(piece->frame.data(), piece->frame.size());
    frame.time_scale = note.time_scale;
    frame.dts = note.dts;
    frame.pts = note.pts;
    frame.duration = note.duration;
    frame.arrival_us = note.arrival_us;
    return frame;
}

}  // namespace Orvane::Muxora::Gateway
