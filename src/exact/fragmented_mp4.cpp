#include "exact/fragmented_mp4.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "codec/annexb.h"
#include "codec/audio_header.h"
#include "core/frame_kinds.h"
#include "exact/rescale.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kDefaultWaitMs = 1000;
// How long fragments of streams without other pictures than key frames are, unless the caller says so.
constexpr uint32_t kDefaultDurationMs = 2000;

constexpr MXCapacityEntry kEncodeVideo[] = {{MX_VIDEO_H264, 0, 0, 0, {}},  {MX_VIDEO_H264_ALT, 0, 0, 0, {}},
                                            {MX_VIDEO_H265, 0, 0, 0, {}},  {MX_VIDEO_MPEG4, 0, 0, 0, {}},
                                            {MX_VIDEO_MJPEG, 0, 0, 0, {}}, {MX_VIDEO_MPEG2, 0, 0, 0, {}}};
constexpr MXCapacityEntry kEncodeAudio[] = {{MX_AUDIO_AAC, 0, 0, 0, {}},   {MX_AUDIO_MPEG, 0, 0, 0, {}},
                                            {MX_AUDIO_ALAW, 0, 0, 0, {}},  {MX_AUDIO_MULAW, 0, 0, 0, {}},
                                            {MX_AUDIO_PCM16, 0, 0, 0, {}}, {MX_AUDIO_PCM8, 0, 0, 0, {}}};
// CodecNumber of the components.
constexpr MXCapacityEntry kCodecVideo[] = {
    {2, 0, 0, 0, {}}, {5, 0, 0, 0, {}}, {1, 0, 0, 0, {}}, {3, 0, 0, 0, {}}, {6, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecAudio[] = {{33, 0, 0, 0, {}}, {38, 0, 0, 0, {}}, {28, 0, 0, 0, {}},
                                           {31, 0, 0, 0, {}}, {30, 0, 0, 0, {}}, {21, 0, 0, 0, {}}};

bool IsVideoCodec(uint32_t encode_type) {
    return std::ranges::any_of(kEncodeVideo, [=](const auto& entry) { return entry.codec == encode_type; });
}

bool IsAudioCodec(uint32_t encode_type) {
    return encode_type == MX_AUDIO_MULAW_ALT ||
           std::ranges::any_of(kEncodeAudio, [=](const auto& entry) { return entry.codec == encode_type; });
}

int64_t Milliseconds(uint32_t ms, uint32_t scale) {
    return int64_t{ms} * scale / 1000;
}

void DescribePicture(Mp4Entry& entry, const SpsDetails& details) {
    entry.width = details.width;
    entry.height = details.height;
    entry.sar_width = details.sar_width;
    entry.sar_height = details.sar_height;
    entry.has_colour = details.has_colour;
    entry.full_range = details.full_range;
    entry.colour_primaries = details.colour_primaries;
    entry.transfer_characteristics = details.transfer_characteristics;
    entry.matrix_coefficients = details.matrix_coefficients;
}

}  // namespace

// A front end that makes no header is one that hands a block out after the call: it must outlive the frame that ended
// the fragment.
uint32_t CFragmentedMp4::createHeader(MXHeaderInfo* info, uint32_t unused) {
    const uint32_t result = CExactPackage::createHeader(info, unused);
    if (result != MX_OK) return result;
    video_.samples.Keep(false);
    audio_.samples.Keep(false);
    return MX_OK;
}

uint32_t CFragmentedMp4::SetFragmentParam(const MXFragmentParam& param) {
    if (IsOpen() || tracks_known_) return MX_FAILED;
    if (param.mode > MX_FRAGMENT_CHUNK || param.tracks > MX_TRACKS_AUDIO) return MX_FAILED;
    if (param.mode == MX_FRAGMENT_DURATION && param.duration_ms == 0) return MX_FAILED;
    if ((param.boxes & ~uint32_t{MX_BOX_STYP | MX_BOX_SIDX | MX_BOX_PRFT}) != 0) return MX_FAILED;
    fragments_ = param;
    return MX_OK;
}

bool CFragmentedMp4::checkFrame(const MXFrameInfo* frame) const {
    if (frame->frame_size > kLargestFrame) return false;
    if (frame->frame_type == MX_FRAME_VIDEO) {
        return fragments_.tracks != MX_TRACKS_AUDIO && IsVideoCodec(frame->encode_type);
    }
    return frame->frame_type == MX_FRAME_AUDIO && fragments_.tracks != MX_TRACKS_VIDEO &&
           IsAudioCodec(frame->encode_type);
}

uint32_t CFragmentedMp4::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t CFragmentedMp4::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

std::vector<const Mp4Track*> CFragmentedMp4::Tracks() const {
    std::vector<const Mp4Track*> tracks;
    for (const Stream* stream : {&video_, &audio_}) {
        if (stream->info.present) tracks.push_back(&stream->info);
    }
    return tracks;
}

// --------------------------------------------------------------------------------------------- frames

uint32_t CFragmentedMp4::PackVideo(const MXFrameInfo& frame) {
    const auto found = config_.Take(frame);
    CatchUp();
    const bool key = IsKeyFrame(frame.frame_sub_type);
    const bool has_picture = found && found->has_picture;
    next_entry_.reset();
    if (has_picture) FindEntry(frame);
    if (!has_picture || (!video_.info.present && (!key || !next_entry_))) {
        saw_picture_ = true;
        return MX_OK;
    }
    // All the room that the sample needs, before anything is decided. A start code of three bytes becomes a length of
    // four.
    const uint8_t* const data = FrameBytes(frame) + found->rest;
    const uint32_t length = frame.frame_size - found->rest;
    const uint32_t room = config_.IsNal() ? length + length / 3 + 16 : length;
    video_.samples.Reserve(room, 1);

    const FrameTime time = VideoTime(frame, config_.ReorderDepth());
    if (next_entry_) {
        if (!video_.info.present) {
            video_.info.rotation = frame.rotation_angle;
            Open(video_, time, std::move(*next_entry_));
        } else {
            UseEntry(video_, std::move(*next_entry_), MediaTime(video_, time));
        }
    }
    Mp4Sample sample = Sample(video_, time);
    sample.key = key;
    CutBefore(video_, sample.dts, key, frame.frame_size);

    saw_picture_ = true;
    uint8_t* const out = video_.samples.Place(room);
    if (config_.IsNal()) {
        sample.size = AnnexBToLengthPrefixed(data, length, out, room);
    } else {
        std::memcpy(out, data, length);
        sample.size = length;
    }
    config_.Told();
    AddSample(video_, sample);
    return MX_OK;
}

void CFragmentedMp4::Forget(bool picture) {
    if (picture) config_.Undo();
}

// What memory was missing for ahead of this frame.
void CFragmentedMp4::CatchUp() {
    RefreshTracks();
    KnowTracks(false);
    if (owed_ == nullptr) return;
    if (tracks_known_) Flush(owed_, nullptr, nullptr);
    owed_ = nullptr;
}

void CFragmentedMp4::FindEntry(const MXFrameInfo& frame) {
    const bool told = video_.info.present && !config_.Changed();
    if (config_.IsNal()) {
        if (told) return;
    } else {
        if (!IsKeyFrame(frame.frame_sub_type)) return;
        // Only the record tells of another size.
        const Mp4Entry* const current = told ? &video_.info.entries[video_.info.entry] : nullptr;
        if (told && frame.width == current->width && frame.height == current->height) return;
    }
    if (!config_.Complete()) return;
    Mp4Entry& entry = next_entry_.emplace();
    entry.encode_type = IsAvc(frame.encode_type) ? uint32_t{MX_VIDEO_H264} : frame.encode_type;
    if (config_.IsNal()) {
        entry.config.resize(config_.Sets().ConfigurationSize());
        ByteCursor out(entry.config.data(), static_cast<uint32_t>(entry.config.size()));
        config_.Sets().WriteConfiguration(out, true);
    } else {
        entry.config.assign(config_.Mpeg4Headers().begin(), config_.Mpeg4Headers().end());
    }
    DescribePicture(entry, config_.Details(frame));
}

uint32_t CFragmentedMp4::PackAudio(const MXFrameInfo& frame, const AudioMeasure& measure) {
    CatchUp();
    // Ahead of the first key frame sound would stand alone.
    if (saw_picture_ && !video_.info.present && !audio_.info.present) return MX_OK;
    audio_.samples.Reserve(frame.frame_size, measure.samples / kLeastAdtsSamples + 1);
    const FrameTime time = AudioTime(frame, measure);
    const AudioForm form = FormOf(frame, measure);
    if (!audio_.info.present) {
        Open(audio_, time, EntryOf(form));
        audio_form_ = form;
    } else if (form != audio_form_) {
        UseEntry(audio_, EntryOf(form), MediaTime(audio_, time));
        audio_form_ = form;
    }
    Mp4Sample sample = Sample(audio_, time);
    sample.key = true;
    CutBefore(audio_, sample.dts, true, frame.frame_size);

    const uint8_t* const data = FrameBytes(frame);
    if (!measure.adts) {
        sample.size = frame.frame_size;
        std::memcpy(audio_.samples.Place(sample.size), data, sample.size);
        AddSample(audio_, sample);
        return MX_OK;
    }
    // Each ADTS frame gets its share of the time.
    const uint32_t total = measure.samples;
    const int64_t length =
        time.duration != 0 ? time.duration : Rescale(total, measure.sample_rate, audio_.info.time_scale);
    std::span<const uint8_t> rest(data, frame.frame_size);
    uint32_t done = 0;
    int64_t begin = 0;
    for (auto header = measure.adts; header; header = ReadAdtsHeader(rest)) {
        Mp4Sample part = sample;
        part.dts = sample.dts + begin;
        done += header->samples;
        const int64_t end = done == total ? length : length * done / total;
        part.duration = time.duration != 0 || done < total ? static_cast<uint32_t>(end - begin) : 0;
        begin = end;
        part.size = header->frame_size - header->header_size;
        if (part.size != 0) {
            std::memcpy(audio_.samples.Place(part.size), rest.data() + header->header_size, part.size);
            AddSample(audio_, part);
        }
        rest = rest.subspan(header->frame_size);
    }
    return MX_OK;
}

CFragmentedMp4::AudioForm CFragmentedMp4::FormOf(const MXFrameInfo& frame, const AudioMeasure& measure) {
    AudioForm form{frame.encode_type, measure.sample_rate, measure.channels, 0};
    if (frame.encode_type != MX_AUDIO_AAC) return form;
    AdtsHeader header;
    if (measure.adts) {
        header = *measure.adts;
    } else {
        header.object_type = 2;  // AAC LC
        header.frequency_index = SamplingFrequencyIndex(measure.sample_rate);
        header.channel_configuration = static_cast<uint8_t>(std::min(measure.channels, 7u));
    }
    form.config = header.AudioSpecificConfig();
    return form;
}

Mp4Entry CFragmentedMp4::EntryOf(const AudioForm& form) {
    Mp4Entry entry;
    entry.encode_type = form.encode_type;
    entry.sample_rate = form.sample_rate;
    entry.channels = form.channels;
    if (form.encode_type == MX_AUDIO_PCM8) entry.bits_per_sample = 8;
    if (form.encode_type == MX_AUDIO_AAC) {
        entry.config = {static_cast<uint8_t>(form.config >> 8), static_cast<uint8_t>(form.config)};
    }
    return entry;
}

// --------------------------------------------------------------------------------------------- samples

void CFragmentedMp4::Open(Stream& stream, const FrameTime& time, Mp4Entry entry) {
    std::vector<Mp4Entry> entries;
    entries.push_back(std::move(entry));
    if (tracks_known_) {
        // A track that comes late: what is there is finished without it.
        Flush(nullptr, nullptr, nullptr);
        tracks_stale_ = true;
    }
    stream.info.video = &stream == &video_;
    stream.info.time_scale = time.scale;
    stream.info.entries = std::move(entries);
    // By an edit list and not by negative composition offsets: in fragments, few readers take those for what they are.
    stream.info.edit_shift = std::max<int64_t>(-time.dts, 0);
    stream.info.present = true;
}

void CFragmentedMp4::UseEntry(Stream& stream, Mp4Entry entry, int64_t next) {
    Mp4Track& track = stream.info;
    auto place = std::ranges::find(track.entries, entry);
    if (place == track.entries.begin() + track.entry) return;
    const bool is_new = place == track.entries.end();
    if (is_new) {
        track.entries.reserve(track.entries.size() + 1);
        place = track.entries.end();
    }
    KnowTracks(true);
    Flush(nullptr, &stream, &next);
    if (is_new) {
        track.entries.push_back(std::move(entry));
        place = track.entries.end() - 1;
    }
    track.entry = static_cast<uint32_t>(place - track.entries.begin());
    tracks_stale_ = true;
}

int64_t CFragmentedMp4::MediaTime(const Stream& stream, const FrameTime& time) {
    return time.dts + stream.info.edit_shift;
}

Mp4Sample CFragmentedMp4::Sample(const Stream& stream, const FrameTime& time) {
    Mp4Sample sample;
    sample.dts = MediaTime(stream, time);
    sample.composition_offset = static_cast<int32_t>(
        std::min<int64_t>(time.pts + stream.info.edit_shift - sample.dts, std::numeric_limits<int32_t>::max()));
    sample.duration = static_cast<uint32_t>(time.duration);
    return sample;
}

void CFragmentedMp4::AddSample(Stream& stream, const Mp4Sample& sample) {
    if (stream.samples.Empty()) stream.first_dts = sample.dts;
    stream.samples.Add(sample);
    stream.last_dts = sample.dts;
    try {
        AfterSample(stream, sample.duration != 0);
    } catch (const std::bad_alloc&) {
        // The sample is in. What was to go out now goes with the next one.
        if (IsByFrame() && sample.duration != 0) owed_ = &stream;
    }
}

void CFragmentedMp4::AfterSample(Stream& stream, bool has_duration) {
    KnowTracks(false);
    if (!IsByFrame() || !has_duration || !tracks_known_) return;
    Flush(&stream, nullptr, nullptr);
    if (owed_ == &stream) owed_ = nullptr;
}

size_t CFragmentedMp4::BytesWith(uint32_t bytes) const {
    return video_.samples.Media().Size() + audio_.samples.Media().Size() + bytes;
}

// Ends the fragment, if it is to end ahead of the sample of this time.
void CFragmentedMp4::CutBefore(Stream& stream, int64_t dts, bool key, uint32_t bytes) {
    const bool too_large = BytesWith(bytes) > kLargestFragment;
    const bool too_long =
        !stream.samples.Empty() && dts - stream.first_dts > kLongestFragmentSeconds * stream.info.time_scale;
    if (too_large || too_long) {
        KnowTracks(true);
        Flush(nullptr, &stream, &dts);
    } else if (tracks_known_ && IsFull(stream, dts, key, bytes)) {
        Flush(IsByFrame() ? &stream : nullptr, &stream, &dts);
    }
}

bool CFragmentedMp4::IsFull(const Stream& stream, int64_t dts, bool key, uint32_t bytes) const {
    if (stream.samples.Empty()) return false;
    if (IsByFrame()) return true;
    // Pictures decide, where there are any.
    if (!stream.info.video && video_.info.present) return false;
    if (fragments_.mode == MX_FRAGMENT_GOP && BytesWith(bytes) > PreferredFragment()) return true;
    const int64_t length = dts - stream.first_dts;
    if (fragments_.mode == MX_FRAGMENT_DURATION || OnlyKeyFrames(stream)) {
        const uint32_t wanted = fragments_.duration_ms != 0 ? fragments_.duration_ms : kDefaultDurationMs;
        return length >= Milliseconds(wanted, stream.info.time_scale);
    }
    if (key) return true;
    // With this picture it would be too long.
    const int64_t interval = dts - stream.last_dts;
    return fragments_.duration_ms != 0 &&
           length + interval > Milliseconds(fragments_.duration_ms, stream.info.time_scale);
}

bool CFragmentedMp4::OnlyKeyFrames(const Stream& stream) const {
    return !stream.info.video || stream.info.entries[stream.info.entry].encode_type == MX_VIDEO_MJPEG;
}

// Decides that no more tracks are waited for: at once, or when all are there or the time is up.
void CFragmentedMp4::KnowTracks(bool now) {
    if (tracks_known_) return;
    const Stream& first = !video_.samples.Empty() ? video_ : audio_;
    if (first.samples.Empty()) return;
    const bool all = fragments_.tracks != MX_TRACKS_BOTH || (!video_.samples.Empty() && !audio_.samples.Empty());
    const uint32_t wait = fragments_.wait_ms != 0 ? fragments_.wait_ms : kDefaultWaitMs;
    const bool waited = first.last_dts - first.first_dts >= Milliseconds(wait, first.info.time_scale);
    if (!now && !all && !waited) return;
    EmitTracks();
    tracks_known_ = true;
}

void CFragmentedMp4::RefreshTracks() {
    if (!tracks_stale_) return;
    EmitTracks();
    tracks_stale_ = false;
}

// --------------------------------------------------------------------------------------------- fragments

// Ends the fragment of both streams or of one. `next` is where the coming sample of `ended` begins.
void CFragmentedMp4::Flush(Stream* alone, const Stream* ended, const int64_t* next) {
    FragmentPart parts[2];
    FragmentTrack::LastDuration before[2];
    size_t count = 0;
    BlockNote note{MX_BLOCK_MEDIA, 0, 0, 0, 0};
    for (Stream* stream : {&video_, &audio_}) {
        if ((alone != nullptr && alone != stream) || stream->samples.Empty()) continue;
        before[count] = stream->samples.Ending();
        stream->samples.End(stream == ended ? next : nullptr);
        parts[count++] = {&stream->info, &stream->samples, stream->info.entry + 1};
        note.flags |= stream->info.video ? MX_BLOCK_VIDEO : MX_BLOCK_AUDIO;
    }
    if (count == 0) return;
    const FragmentPart& reference = parts[0];
    if (reference.samples->Front().key) note.flags |= MX_BLOCK_KEY;
    note.time_scale = reference.track->time_scale;
    note.dts = reference.samples->Front().dts - reference.track->edit_shift;
    note.duration = static_cast<int64_t>(reference.samples->Duration());
    try {
        RefreshTracks();
        EmitFragment({parts, count}, note);
    } catch (const std::bad_alloc&) {
        // As if nothing had been tried.
        for (size_t i = 0; i < count; ++i)
            parts[i].samples->Reopen(before[i]);
        throw;
    }
    for (size_t i = 0; i < count; ++i)
        parts[i].samples->Clear();
}

std::span<const uint8_t> CFragmentedMp4::Assemble(std::span<const FragmentPart> parts,
                                                  const std::vector<uint8_t>& head) {
    MediaBuffer& media = parts[0].samples->Media();
    const size_t own = media.Size();
    media.ReserveFront(head.size());
    if (parts.size() > 1) {
        // Behind what counts as the first part's: its size stays.
        MediaBuffer& other = parts[1].samples->Media();
        std::memcpy(media.Reserve(other.Size()), other.Data(), other.Size());
        media.Commit(other.Size());
    }
    const uint8_t* const begin = media.PutInFront(head.data(), head.size());
    const std::span<const uint8_t> block(begin, head.size() + media.Size());
    media.Truncate(own);
    return block;
}

uint32_t CFragmentedMp4::Finish() {
    CatchUp();
    KnowTracks(true);
    RefreshTracks();
    Flush(nullptr, nullptr, nullptr);
    return MX_OK;
}

}  // namespace Orvane::Muxora
