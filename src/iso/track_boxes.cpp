#include "iso/track_boxes.h"

#include <algorithm>
#include <new>
#include <span>

#include "MuxoraAPI.h"
#include "codec/audio_measures.h"
#include "core/frame_kinds.h"
#include "core/messages.h"

namespace Orvane::Muxora {

namespace {

// A sample of several ADTS frames becomes the first of them. A length that can't be right leaves it as it came.
void StripAdtsHeader(SampleInfo& sample) {
    const std::span<const uint8_t> payload = AdtsPayload(sample.data, sample.length);
    if (payload.data() == nullptr) return;
    sample.data = payload.data();
    sample.length = static_cast<uint32_t>(payload.size());
}

// Single precision is part of the output. By way of 64 bits, as the value may be beyond 32.
uint32_t ToMovieTime(uint32_t duration, uint32_t timescale) {
    const float movie_time =
        static_cast<float>(duration) / static_cast<float>(timescale) * static_cast<float>(kMovieTimeScale);
    return static_cast<uint32_t>(static_cast<int64_t>(movie_time));
}

}  // namespace

CBox_stbl::CBox_stbl(BoxVariant variant) : CBox("stbl"), stsd_(variant) {
    if (HasLargeOffsets(variant)) {
        co64_.emplace();
    } else {
        stco_.emplace();
    }
    Refresh();
}

void CBox_stbl::Init(uint32_t trackType, const TrackInfo* info) {
    trackType_ = trackType;
    stsd_.Init(trackType, info);
    stts_.Init(trackType, info);
    // The sample that opens the track is in it, or there is no track.
    if (!ReserveEntry(trackType == kVideoTrack)) throw std::bad_alloc();
    Refresh();
}

bool CBox_stbl::Update(const SampleInfo& sample) {
    const bool is_sync = trackType_ == kVideoTrack && IsSyncFrame(sample.frame_sub_type);
    if (!Reserve(sample, is_sync)) return false;
    stsd_.Update(sample);
    stts_.Update(sample);
    if (is_sync) stss_.Update(nextSample_);
    stsz_.Update(sample.length);
    if (stco_) stco_->Update(static_cast<uint32_t>(sample.offset));
    if (co64_) co64_->Update64(sample.offset);
    ++nextSample_;
    Refresh();
    return true;
}

bool CBox_stbl::Reserve(const SampleInfo& sample, bool is_sync) {
    return stts_.Reserve(sample) && ReserveEntry(is_sync);
}

bool CBox_stbl::ReserveEntry(bool is_sync) {
    if (!stsz_.Reserve()) return false;
    if (is_sync && !stss_.Reserve()) return false;
    return stco_ ? stco_->Reserve() : co64_->Reserve();
}

void CBox_stbl::Refresh() {
    uint32_t size = stsd_.GetSize() + stts_.GetSize() + stsc_.GetSize() + stsz_.GetSize();
    if (trackType_ == kVideoTrack) size += stss_.GetSize();
    if (stco_) size += stco_->GetSize();
    if (co64_) size += co64_->GetSize();
    SetDataSize(size);
}

uint32_t CBox_stbl::WriteData(CGrowBuffer* buffer) const {
    uint32_t written = stsd_.Write(buffer);
    written += stts_.Write(buffer);
    if (trackType_ == kVideoTrack) written += stss_.Write(buffer);
    written += stsc_.Write(buffer);
    written += stsz_.Write(buffer);
    if (stco_) written += stco_->Write(buffer);
    if (co64_) written += co64_->Write(buffer);
    return Checked(written, "CBox_stbl:WriteData error!\n");
}

CBox_minf::CBox_minf(BoxVariant variant) : CBox("minf"), stbl_(variant) {
    Refresh();
}

void CBox_minf::Init(uint32_t trackType, const TrackInfo* info) {
    if (trackType == kVideoTrack) media_header_ = std::make_unique<CBox_vmhd>();
    if (trackType == kAudioTrack) media_header_ = std::make_unique<CBox_smhd>();
    stbl_.Init(trackType, info);
    Refresh();
}

bool CBox_minf::Update(const SampleInfo& sample) {
    if (!stbl_.Update(sample)) return false;
    Refresh();
    return true;
}

void CBox_minf::Refresh() {
    const uint32_t media_header = media_header_ != nullptr ? media_header_->GetSize() : 0;
    SetDataSize(media_header + dinf_.GetSize() + stbl_.GetSize());
}

uint32_t CBox_minf::WriteData(CGrowBuffer* buffer) const {
    uint32_t written = media_header_ != nullptr ? media_header_->Write(buffer) : 0;
    written += dinf_.Write(buffer);
    written += stbl_.Write(buffer);
    return Checked(written, "CBox_minf:WriteData error!\n");
}

CBox_mdia::CBox_mdia(BoxVariant variant) : CBox("mdia"), minf_(variant) {
    Refresh();
}

void CBox_mdia::Init(uint32_t trackType, const TrackInfo* info) {
    mdhd_.Init(trackType, info);
    hdlr_.Init(trackType, info);
    minf_.Init(trackType, info);
    Refresh();
}

bool CBox_mdia::Update(const SampleInfo& sample) {
    if (!minf_.Update(sample)) return false;
    Refresh();
    return true;
}

void CBox_mdia::Refresh() {
    mdhd_.SetDuration(TotalDuration());
    SetDataSize(mdhd_.GetSize() + hdlr_.GetSize() + minf_.GetSize());
}

uint32_t CBox_mdia::WriteData(CGrowBuffer* buffer) const {
    uint32_t written = mdhd_.Write(buffer);
    written += hdlr_.Write(buffer);
    written += minf_.Write(buffer);
    return Checked(written, "CBox_mdia:WriteData error!\n");
}

CBox_trak::CBox_trak(BoxVariant variant) : CBox("trak"), mdia_(variant) {
    Refresh();
}

void CBox_trak::Init(uint32_t trackType, const TrackInfo* info) {
    if (info == nullptr || initialised_) return;
    if (trackType == kVideoTrack) {
        timescale_ = kMovieTimeScale;
    } else if (const auto* audio = std::get_if<AudioTrackInfo>(info); audio != nullptr && trackType == kAudioTrack) {
        timescale_ = audio->samples_per_sec;
        is_aac_ = audio->encode_type == MX_AUDIO_AAC;
    }
    tkhd_.Init(trackType, info);
    mdia_.Init(trackType, info);
    initialised_ = true;
    Refresh();
}

bool CBox_trak::Update(SampleInfo& sample) {
    if (!initialised_) return true;
    if (is_aac_) StripAdtsHeader(sample);
    if (!mdia_.Update(sample)) return false;
    Refresh();
    return true;
}

void CBox_trak::Refresh() {
    if (timescale_ != 0) duration_ = ToMovieTime(mdia_.TotalDuration(), timescale_);
    tkhd_.SetDuration(duration_);
    SetDataSize(tkhd_.GetSize() + mdia_.GetSize());
}

uint32_t CBox_trak::WriteData(CGrowBuffer* buffer) const {
    uint32_t written = tkhd_.Write(buffer);
    written += mdia_.Write(buffer);
    return Checked(written, "CBox_trak:WriteData error!\n");
}

CBox_moov::CBox_moov(BoxVariant variant) : CBox("moov"), video_(variant), audio_(variant), ext_(variant) {
    Refresh();
}

void CBox_moov::Init(uint32_t trackType, const TrackInfo* info) {
    if (info == nullptr) return;
    if (CBox_trak* const trak = Trak(trackType)) {
        trak->Init(trackType, info);
        ++trackCount_;
    }
    mvhd_.Init(trackCount_);
    Refresh();
}

bool CBox_moov::Update(uint32_t trackType, SampleInfo& sample) {
    if (CBox_trak* const trak = Trak(trackType); trak != nullptr && !trak->Update(sample)) return false;
    Refresh();
    return true;
}

CBox_trak* CBox_moov::Trak(uint32_t trackType) {
    switch (trackType) {
        case kVideoTrack:
            return &video_;
        case kAudioTrack:
            return &audio_;
        case kExtTrack:
            return &ext_;
        default:
            return nullptr;
    }
}

void CBox_moov::Refresh() {
    uint32_t size = mvhd_.GetSize();
    for (const CBox_trak* trak : {&video_, &audio_, &ext_}) {
        if (!trak->IsPresent()) continue;
        size += trak->GetSize();
        movieDuration_ = std::max(movieDuration_, trak->Duration());
    }
    mvhd_.SetDuration(movieDuration_);
    SetDataSize(size);
}

uint32_t CBox_moov::WriteData(CGrowBuffer* buffer) const {
    uint32_t written = mvhd_.Write(buffer);
    for (const CBox_trak* trak : {&video_, &audio_, &ext_}) {
        if (trak->IsPresent()) written += trak->Write(buffer);
    }
    if (written != DataSize()) {
        Say("CBox_moov:WriteData error! %d != %d \n", static_cast<int>(written), static_cast<int>(DataSize()));
    }
    return written;
}

}  // namespace Orvane::Muxora
