#include "iso/mp4_packet.h"

#include <cstring>
#include <limits>
#include <utility>

#include "codec/avc_convert.h"
#include "codec/hevc_convert.h"
#include "core/frame_kinds.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kBoxHeaderSize = 8;
constexpr uint32_t kDefaultFrameRate = 25;
// What a frame may grow by when its start codes become lengths; a frame that outgrows it is cut.
constexpr uint32_t kConversionRoom = 256;

constexpr MXCapacityEntry kEncodeVideo[] = {{MX_VIDEO_H264_ALT, 0, 0, 0, {}},
                                            {MX_VIDEO_MPEG4, 0, 0, 0, {}},
                                            {MX_VIDEO_H265, 0, 0, 0, {}},
                                            {MX_VIDEO_MJPEG, 0, 0, 0, {}}};
constexpr MXCapacityEntry kEncodeAudio[] = {{MX_AUDIO_AAC, 0, 0, 0, {}}, {MX_AUDIO_MPEG, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecVideo[] = {{2, 0, 0, 0, {}}, {1, 0, 0, 0, {}}, {5, 0, 0, 0, {}}, {3, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecAudio[] = {{33, 0, 0, 0, {}}, {38, 0, 0, 0, {}}};

BoxVariant VariantOf(uint32_t format) {
    switch (format) {
        case MX_FORMAT_MOV:
            return BoxVariant::kMov;
        case MX_FORMAT_MP4_64:
            return BoxVariant::kMp4Large;
        case MX_FORMAT_MOV_64:
            return BoxVariant::kMovLarge;
        case MX_FORMAT_MP4_NOSEEK:
            return BoxVariant::kMp4NoSeek;
        default:
            return BoxVariant::kMp4;
    }
}

// Empties the buffer and gives it room for `size` bytes, with nothing to copy on the way. False, with the room as it
// was, if there is no memory.
bool ResetWithRoomFor(uint32_t size, CGrowBuffer& buffer) {
    buffer.Reset();
    return static_cast<uint64_t>(buffer.Capacity()) >= size || buffer.Reserve(size) == MX_OK;
}

// Gives the empty buffer exactly `capacity` bytes if it has fewer. False, with the buffer as it was, if there is no
// memory.
bool WidenTo(uint64_t capacity, CGrowBuffer& buffer) {
    if (static_cast<uint64_t>(buffer.Capacity()) >= capacity) return true;
    if (capacity > static_cast<uint64_t>(std::numeric_limits<int32_t>::max())) return false;
    CGrowBuffer wider;
    if (wider.Create(static_cast<int32_t>(capacity)) != MX_OK) return false;
    buffer = std::move(wider);
    return true;
}

}  // namespace

CMp4Packet::CMp4Packet(uint32_t format, const MXCreateParam* param)
    : CPackage(format, param), variant_(VariantOf(format)) {
}

uint32_t CMp4Packet::init() {
    const CMXAutoMutexLock lock(mutex_);
    ftyp_ = std::make_unique<CBox_ftyp>(variant_);
    free_ = std::make_unique<CBox_free>();
    moov_ = std::make_unique<CBox_moov>(variant_);
    mdat_ = std::make_unique<CBox_mdat>(variant_);
    return MX_OK;
}

uint32_t CMp4Packet::uninit() {
    const CMXAutoMutexLock lock(mutex_);
    videoStarted_ = false;
    audioStarted_ = false;
    ftyp_.reset();
    free_.reset();
    mdat_.reset();
    moov_.reset();
    return MX_OK;
}

uint32_t CMp4Packet::createHeader(MXHeaderInfo* info, uint32_t /*unused*/) {
    const CMXAutoMutexLock lock(mutex_);
    if (!HasTree()) return MX_FAILED;
    workBuffer_.Reset();
    uint32_t written = ftyp_->Write(&workBuffer_);
    freePos_ = writePos_ + ftyp_->GetSize();
    if (info != nullptr) free_->Init(info->reserved_gap);
    written += free_->Write(&workBuffer_);
    if (!HasMdatPerSample(variant_)) {
        mdatPos_ = freePos_ + free_->GetSize();
        written += mdat_->Write(&workBuffer_);
    }
    // A gap that there is no memory for.
    if (workBuffer_.Size() != written || written < free_->GetSize()) return MX_NO_RESOURCES;
    writePos_ += EmitAt(workBuffer_.Data(), workBuffer_.Size(), writePos_);
    return MX_OK;
}

uint32_t CMp4Packet::inputFrame(MXFrameInfo* frame, uint32_t /*reserved*/) {
    const CMXAutoMutexLock lock(mutex_);
    if (!HasData(frame)) return MX_FAILED;
    if (!checkFrame(frame)) return MX_FRAME_REFUSED;
    switch (frame->frame_type) {
        case MX_FRAME_VIDEO:
            return InputVideo(*frame);
        case MX_FRAME_AUDIO:
            return InputAudio(*frame);
        case MX_FRAME_PRIVATE:
            return InputExt(*frame);
        default:
            return MX_FAILED;
    }
}

// A frame that is dropped for what it is answers MX_OK. One that there is no memory for answers MX_NO_RESOURCES, and is
// as if it had not been given: memory is taken before anything is changed.
uint32_t CMp4Packet::InputVideo(const MXFrameInfo& frame) {
    if (!HasTree()) return MX_OK;
    if (!ResetWorkBuffer()) return MX_NO_RESOURCES;
    if (!WidenTo(uint64_t{frame.frame_size} + kConversionRoom, workBuffer_)) return MX_NO_RESOURCES;
    if (!videoStarted_ && IsKeyFrame(frame.frame_sub_type)) OpenVideo(frame);
    if (!videoStarted_ || frame.encode_type != videoEncodeType_) return MX_OK;

    const uint32_t header = SampleHeaderSize();
    uint8_t* const converted = workBuffer_.Data() + header;
    const uint32_t length = Convert(frame, converted, static_cast<uint32_t>(workBuffer_.Capacity()) - header);
    if (length == 0) return MX_OK;

    SampleInfo sample{converted, length, frame.frame_sub_type, frame.frame_rate, SampleOffset()};
    if (!moov_->Update(kVideoTrack, sample)) return MX_NO_RESOURCES;
    mdat_->Update(length);
    if (HasMdatPerSample(variant_)) {
        mdat_->Write(&workBuffer_);  // into the bytes kept free in front of the sample
        writePos_ += EmitAt(workBuffer_.Data(), mdat_->GetSize(), writePos_);
    } else {
        writePos_ += EmitAt(converted, length, writePos_);
    }
    return MX_OK;
}

uint32_t CMp4Packet::InputAudio(const MXFrameInfo& frame) {
    if (!HasTree()) return MX_OK;
    ResetWorkBuffer();
    if (!videoStarted_) return MX_OK;
    if (!audioStarted_) OpenAudio(frame);
    if (frame.ma_cur_channel != audioChannel_ || frame.encode_type != audioEncodeType_) return MX_OK;
    return WriteCopied(kAudioTrack, frame);
}

uint32_t CMp4Packet::InputExt(const MXFrameInfo& frame) {
    if (!HasTree()) return MX_OK;
    ResetWorkBuffer();
    if (videoStarted_ && !extStarted_) {
        // Readers rely on this: without a record no track is opened; the bytes alone are in the file.
        moov_->Init(kExtTrack, nullptr);
        extStarted_ = true;
    }
    if (!extStarted_) return MX_OK;
    return WriteCopied(kExtTrack, frame);
}

void CMp4Packet::OpenVideo(const MXFrameInfo& frame) {
    VideoTrackInfo video;
    video.data = FrameBytes(frame);
    video.length = frame.frame_size;
    video.width = frame.width;
    video.height = frame.height;
    video.frame_rate = frame.frame_rate != 0 ? frame.frame_rate : kDefaultFrameRate;
    video.encode_type = frame.encode_type;
    const TrackInfo info = video;
    moov_->Init(kVideoTrack, &info);
    videoEncodeType_ = frame.encode_type;
    videoStarted_ = true;
}

void CMp4Packet::OpenAudio(const MXFrameInfo& frame) {
    audioChannel_ = frame.ma_cur_channel;
    const TrackInfo info =
        AudioTrackInfo{frame.encode_type, frame.channels, frame.bits_per_sample, frame.samples_per_sec};
    moov_->Init(kAudioTrack, &info);
    audioEncodeType_ = frame.encode_type;
    audioStarted_ = true;
}

uint32_t CMp4Packet::Convert(const MXFrameInfo& frame, uint8_t* out, uint32_t outCap) const {
    const uint8_t* const bytes = FrameBytes(frame);
    if (IsH264(frame.encode_type)) return CAvcConvert::ConvertToLengthPrefixed(bytes, frame.frame_size, out, outCap);
    if (frame.encode_type == MX_VIDEO_H265) return HevcConvertToLengthPrefixed(bytes, frame.frame_size, out, outCap);
    std::memcpy(out, bytes, frame.frame_size);
    return frame.frame_size;
}

// Audio and private data: the sample goes out as it is, but for an ADTS header, which the track takes off.
uint32_t CMp4Packet::WriteCopied(uint32_t trackType, const MXFrameInfo& frame) {
    SampleInfo sample{FrameBytes(frame), frame.frame_size, frame.frame_sub_type, 0, SampleOffset()};
    if (workBuffer_.Reserve(SampleHeaderSize()) != MX_OK) return MX_NO_RESOURCES;
    if (!moov_->Update(trackType, sample)) return MX_NO_RESOURCES;
    mdat_->Update(sample.length);
    if (HasMdatPerSample(variant_)) mdat_->Write(&workBuffer_);
    if (workBuffer_.Reserve(sample.length) == MX_OK) {
        workBuffer_.Append(sample.data, sample.length);
        writePos_ += EmitAt(workBuffer_.Data(), workBuffer_.Size(), writePos_);
        return MX_OK;
    }
    // No room for a copy. The tables and mdat count the sample by now, so it goes out from where it lies.
    if (workBuffer_.Size() != 0) writePos_ += EmitAt(workBuffer_.Data(), workBuffer_.Size(), writePos_);
    writePos_ += EmitAt(sample.data, sample.length, writePos_);
    return MX_OK;
}

uint32_t CMp4Packet::createTailer(const void* /*info*/, uint32_t /*unused*/) {
    const CMXAutoMutexLock lock(mutex_);
    if (!HasTree()) return MX_FAILED;
    const uint32_t gap = free_->GetSize() - kBoxHeaderSize;
    const uint32_t need = moov_->GetSize();
    ResetWithRoomFor(need, workBuffer_);
    uint64_t moovPos = writePos_;
    uint32_t written = 0;
    if (gap >= need) {
        // Readers rely on this: on an exact fit free keeps the size of the whole gap, and moov lies inside it.
        free_->Init(gap - need);
        written += free_->Write(&workBuffer_);
        moovPos = freePos_;
    }
    written += moov_->Write(&workBuffer_);
    if (workBuffer_.Size() != written) {
        if (gap >= need) free_->Init(gap);  // the gap is still whole when the tail is asked for again
        return MX_NO_RESOURCES;
    }
    writePos_ += EmitAt(workBuffer_.Data(), workBuffer_.Size(), moovPos);
    if (HasMdatPerSample(variant_)) return MX_OK;
    if (!HasTree()) return MX_FAILED;
    workBuffer_.Reset();
    mdat_->Write(&workBuffer_);
    EmitAt(workBuffer_.Data(), workBuffer_.Size(), mdatPos_);
    return MX_OK;
}

uint32_t CMp4Packet::getBackup(MXOutputBlock* block) {
    const CMXAutoMutexLock lock(mutex_);
    if (!HasTree() || block == nullptr) return 0;
    ResetWithRoomFor(moov_->GetSize(), backup_);
    if (moov_->Write(&backup_) != backup_.Size()) return 0;  // no memory
    if (backup_.Size() > largest_backup_) largest_backup_ = backup_.Size();
    block->data = backup_.Data();
    block->length = backup_.Size();
    block->seek_type = MX_SEEK_ABSOLUTE;
    block->offset32 = static_cast<uint32_t>(writePos_);
    return backup_.Size();
}

bool CMp4Packet::checkFrame(const MXFrameInfo* frame) const {
    switch (frame->frame_type) {
        case MX_FRAME_VIDEO:
            return frame->encode_type == MX_VIDEO_MPEG4 || IsH264(frame->encode_type) ||
                   frame->encode_type == MX_VIDEO_MJPEG || frame->encode_type == MX_VIDEO_H265;
        case MX_FRAME_AUDIO:
            return frame->encode_type == MX_AUDIO_AAC || frame->encode_type == MX_AUDIO_MPEG;
        case MX_FRAME_PRIVATE:
            return true;
        default:
            return false;
    }
}

uint32_t CMp4Packet::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t CMp4Packet::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

// The room of this buffer is what bounds a conversion, and with it the output: a snapshot widens it, though the
// snapshot itself lies in a buffer of its own.
bool CMp4Packet::ResetWorkBuffer() {
    return ResetWithRoomFor(largest_backup_, workBuffer_);
}

uint32_t CMp4Packet::SampleHeaderSize() const {
    return HasMdatPerSample(variant_) ? kBoxHeaderSize : 0;
}

}  // namespace Orvane::Muxora
