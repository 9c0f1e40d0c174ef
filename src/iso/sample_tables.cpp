#include "iso/sample_tables.h"

#include "MuxoraAPI.h"
#include "core/frame_kinds.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kMillisecondsPerSecond = 1000;
constexpr uint32_t kAacSamplesPerFrame = 1024;
constexpr uint32_t kMpegAudioSamplesPerFrame = 1152;  // ISO/IEC 11172-3 layers II and III

constexpr uint32_t kEntryCountSize = 4;
constexpr uint32_t kSttsEntrySize = 8;
constexpr uint32_t kLargestHead = 12;  // that of stsz

}  // namespace

CBox_stts::CBox_stts() : CBox("stts") {
    // The open run is there from the start.
    SetDataSize(kFullBoxHead + kEntryCountSize + kSttsEntrySize);
}

void CBox_stts::Init(uint32_t trackType, const TrackInfo* info) {
    if (const auto* video = std::get_if<VideoTrackInfo>(info); video != nullptr && trackType == kVideoTrack) {
        trackType_ = trackType;
        if (video->frame_rate != 0) runDelta_ = kMillisecondsPerSecond / video->frame_rate;
    } else if (const auto* audio = std::get_if<AudioTrackInfo>(info); audio != nullptr && trackType == kAudioTrack) {
        trackType_ = trackType;
        if (audio->encode_type == MX_AUDIO_AAC) runDelta_ = kAacSamplesPerFrame;
        if (audio->encode_type == MX_AUDIO_MPEG) runDelta_ = kMpegAudioSamplesPerFrame;
    }
}

bool CBox_stts::Reserve(const SampleInfo& sample) {
    const bool closes_run = runCount_ != 0 && NextStep(sample).delta != runDelta_;
    return !closes_run || runs_.Reserve();
}

void CBox_stts::Update(const SampleInfo& sample) {
    const Step step = NextStep(sample);
    fraction_ = step.fraction;
    if (step.delta != runDelta_) OpenRun(step.delta);
    ++runCount_;
    totalDuration_ += runDelta_;
}

CBox_stts::Step CBox_stts::NextStep(const SampleInfo& sample) const {
    if (trackType_ != kVideoTrack || sample.frame_rate == 0) return {runDelta_, fraction_};
    uint32_t delta = kMillisecondsPerSecond / sample.frame_rate;
    // Single precision is part of the output: at 30 frames per second the sum of the fractions reaches 1 on the fourth
    // sample.
    float fraction = fraction_ + (static_cast<float>(kMillisecondsPerSecond) / static_cast<float>(sample.frame_rate) -
                                  static_cast<float>(delta));
    if (fraction >= 1.0F) {
        const auto whole = static_cast<uint32_t>(fraction);
        delta += whole;
        fraction -= static_cast<float>(whole);
    }
    return {delta, fraction};
}

// Without memory to keep the open run it goes on: every sample stays counted.
void CBox_stts::OpenRun(uint32_t delta) {
    if (runCount_ != 0) {
        if (!runs_.Append64(uint64_t{runCount_} << 32 | runDelta_)) return;
        ++closedRuns_;
        SetDataSize(DataSize() + kSttsEntrySize);
    }
    runCount_ = 0;
    runDelta_ = delta;
}

// ISO/IEC 14496-12 8.6.1.2
uint32_t CBox_stts::WriteData(CGrowBuffer* buffer) const {
    uint8_t head[kFullBoxHead + kEntryCountSize];
    ByteCursor out(head);
    out.BE32(0)                  // version, flags
        .BE32(closedRuns_ + 1);  // entry_count
    buffer->Append(head, out.Size());
    uint32_t written = out.Size() + runs_.Write(buffer);  // sample_count, sample_delta

    uint8_t open_run[kSttsEntrySize];
    ByteCursor last(open_run);
    last.BE32(runCount_)   // sample_count
        .BE32(runDelta_);  // sample_delta
    buffer->Append(open_run, last.Size());
    written += last.Size();
    return Checked(written, "CBox_stts:WriteData error!\n");
}

CTableBox::CTableBox(const char (&type)[5], uint32_t head, const char* complaint)
    : CBox(type), head_(head), complaint_(complaint) {
    SetDataSize(head);
}

void CTableBox::Append32(uint32_t value) {
    if (entries_.Append32(value)) Count(4);
}

void CTableBox::Append64(uint64_t value) {
    if (entries_.Append64(value)) Count(8);
}

void CTableBox::Count(uint32_t width) {
    ++entryCount_;
    SetDataSize(DataSize() + width);
}

uint32_t CTableBox::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kLargestHead];
    ByteCursor out(area);
    out.Zeros(head_ - kEntryCountSize).BE32(entryCount_);
    buffer->Append(area, out.Size());
    return Checked(out.Size() + entries_.Write(buffer), complaint_);
}

CBox_stsc::CBox_stsc() : CBox("stsc") {
    SetDataSize(kFullBoxHead + kEntryCountSize + 12);
}

// ISO/IEC 14496-12 8.7.4.2
uint32_t CBox_stsc::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kFullBoxHead + kEntryCountSize + 12];
    ByteCursor out(area);
    out.BE32(0)    // version, flags
        .BE32(1)   // entry_count
        .BE32(1)   // first_chunk
        .BE32(1)   // samples_per_chunk
        .BE32(1);  // sample_description_index
    return WriteChecked(buffer, out, "CBox_stsc:WriteData error!\n");
}

}  // namespace Orvane::Muxora
