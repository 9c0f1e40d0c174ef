#include "containers/avi_writer.h"

#include <limits>

#include "MuxoraAPI.h"
#include "core/frame_kinds.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kSizeLimit = 0x40000000;
constexpr uint32_t kChunkHeaderSize = 8;
constexpr uint32_t kFourCCSize = 4;
constexpr uint32_t kRiffHeaderSize = 12;
constexpr uint32_t kListHeaderSize = 12;

constexpr uint32_t kHeaderListAt = kRiffHeaderSize;
constexpr uint32_t kMoviListAt = kHeaderListAt + AviHeaderBlock::kListSize;
constexpr uint32_t kMoviFourCCAt = kMoviListAt + kChunkHeaderSize;

constexpr uint32_t kAvixHeadSize = kRiffHeaderSize + kListHeaderSize;
constexpr uint32_t kAvixMoviFourCCAt = kRiffHeaderSize + kChunkHeaderSize;

constexpr uint32_t kKeyFrameFlag = 16;         // AVIIF_KEYFRAME
constexpr uint32_t kNoKeyFrameBit = 1u << 31;  // of dwSize in a standard index

// Readers rely on this: predicted pictures alone are marked, bi-predicted ones are not.
uint32_t StandardIndexSize(const AviChunk& chunk) {
    const bool predicted =
        chunk.stream == AviStream::Video && (chunk.sub_type == MX_SUB_P || chunk.sub_type == MX_SUB_LAYERED_P);
    return predicted ? chunk.length | kNoKeyFrameBit : chunk.length;
}

uint32_t LegacyIndexFlags(const AviChunk& chunk) {
    return chunk.stream == AviStream::Audio || IsSyncFrame(chunk.sub_type) ? kKeyFrameFlag : 0;
}

uint32_t Padding(const AviChunk& chunk) {
    return chunk.length & 1;
}

uint32_t TotalSize(const AviChunk& chunk) {
    return kChunkHeaderSize + chunk.length + Padding(chunk);
}

}  // namespace

AviRiff::AviRiff(AviOutput output, AviWork& work, uint64_t base, uint32_t movi_at)
    : output_(output), work_(work), base_(base), movi_at_(movi_at), size_(movi_at + kFourCCSize) {
    work_.video_index.Reset();
    work_.audio_index.Reset();
}

bool AviRiff::PastLimit() const {
    return size_ > kSizeLimit;
}

void AviRiff::EnterSuperIndexes(AviHeaderBlock& header) const {
    const auto enter = [&](AviStream stream, const AviStandardIndex& index, const Place& place) {
        if (index.Entries() != 0) header.SuperIndex(stream).Add(place.position, place.size, index.Entries());
    };
    enter(AviStream::Video, work_.video_index, video_index_);
    enter(AviStream::Audio, work_.audio_index, audio_index_);
}

bool AviRiff::ReserveChunk(const AviChunk& chunk) {
    if (chunk.length > std::numeric_limits<int32_t>::max() - kChunkHeaderSize - Padding(chunk)) return false;
    work_.chunk.Reset();
    return work_.chunk.Reserve(TotalSize(chunk)) == MX_OK && Index(chunk.stream).Reserve();
}

void AviRiff::AppendChunk(const AviChunk& chunk) {
    const uint32_t total = TotalSize(chunk);
    work_.chunk.Reset();
    uint8_t* const bytes = work_.chunk.Extend(total);
    ByteCursor(bytes, total)
        .Bytes(AviChunkId(chunk.stream), kFourCCSize)
        .LE32(chunk.length)
        .Bytes(chunk.data, chunk.length)
        .Zeros(Padding(chunk));
    Index(chunk.stream).Add(MoviOffset() + kChunkHeaderSize, StandardIndexSize(chunk));
    Append({bytes, total});
}

void AviRiff::AppendStandardIndexes() {
    video_index_ = AppendStandardIndex(work_.video_index);
    audio_index_ = AppendStandardIndex(work_.audio_index);
}

AviRiff::Place AviRiff::AppendStandardIndex(AviStandardIndex& index) {
    const std::span<const uint8_t> chunk = index.Compose(base_ + movi_at_);
    const Place place{base_ + size_, static_cast<uint32_t>(chunk.size())};
    Append(chunk);
    return place;
}

void AviRiff::Append(std::span<const uint8_t> bytes) {
    const auto length = static_cast<uint32_t>(bytes.size());
    output_.write(output_.user, bytes.data(), length, base_ + size_);
    size_ += length;
}

void AviRiff::WriteAt(uint32_t at, const ByteCursor& bytes) const {
    output_.write(output_.user, bytes.Data(), bytes.Size(), base_ + at);
}

AviRiffWriter::AviRiffWriter(AviOutput output, AviWork& work) : AviRiff(output, work, 0, kMoviFourCCAt) {
}

void AviRiffWriter::WriteStart(const AviHeaderBlock& header) {
    WriteRiffHeader();
    WriteHeaderList(header);
    WriteMoviHeader();
}

void AviRiffWriter::WriteHeaderList(const AviHeaderBlock& header) {
    uint8_t area[AviHeaderBlock::kListSize];
    ByteCursor out(area);
    header.Write(out);
    WriteAt(kHeaderListAt, out);
}

void AviRiffWriter::Write(const AviChunk& chunk) {
    const uint32_t offset = MoviOffset();
    AppendChunk(chunk);
    legacy_index_.Add(chunk.stream, LegacyIndexFlags(chunk), offset, chunk.length);
}

void AviRiffWriter::Close() {
    if (!closed_) {
        if (PastLimit()) AppendStandardIndexes();
        movi_size_ = MoviOffset();
        Append(legacy_index_.Compose());
        closed_ = true;
    }
    WriteRiffHeader();
    WriteMoviHeader();
}

void AviRiffWriter::WriteRiffHeader() {
    uint8_t area[kRiffHeaderSize];
    ByteCursor out(area);
    // Readers rely on this: the size counts its own 8 bytes of header too.
    out.Text("RIFF").LE32(Size()).Text("AVI ");
    WriteAt(0, out);
}

void AviRiffWriter::WriteMoviHeader() {
    uint8_t area[kListHeaderSize];
    ByteCursor out(area);
    out.Text("LIST").LE32(closed_ ? movi_size_ : MoviOffset()).Text("movi");
    WriteAt(kMoviListAt, out);
}

AvixWriter::AvixWriter(AviOutput output, AviWork& work, uint64_t base)
    : AviRiff(output, work, base, kAvixMoviFourCCAt) {
}

void AvixWriter::Close() {
    AppendStandardIndexes();
    uint8_t area[kAvixHeadSize];
    ByteCursor out(area);
    // Readers rely on this: both sizes count their own 8 bytes of header too.
    out.Text("RIFF").LE32(Size()).Text("AVIX").Text("LIST").LE32(Size() - kRiffHeaderSize).Text("movi");
    WriteAt(0, out);
}

}  // namespace Orvane::Muxora
