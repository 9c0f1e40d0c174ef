#include "containers/avi_writer.h"

#include <limits>
#include <utility>

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

}  // namespace

AviRiff::AviRiff(AviOutput output, CGrowBuffer& scratch, uint64_t base, uint32_t movi_at)
    : output_(output), scratch_(scratch), base_(base), movi_at_(movi_at), size_(movi_at + kFourCCSize) {
}

bool AviRiff::PastLimit() const {
    return size_ > kSizeLimit;
}

void AviRiff::EnterSuperIndexes(AviHeaderBlock& header) const {
    for (const auto& [stream, kind] : {std::pair(&video_, AviStream::Video), std::pair(&audio_, AviStream::Audio)}) {
        if (stream->index.Entries() == 0) continue;
        header.SuperIndex(kind).Add(stream->position, stream->size, stream->index.Entries());
    }
}

bool AviRiff::AppendChunk(const AviChunk& chunk) {
    const uint32_t pad = chunk.length & 1;
    if (chunk.length > std::numeric_limits<int32_t>::max() - kChunkHeaderSize - pad) return false;
    const uint32_t total = kChunkHeaderSize + chunk.length + pad;

    scratch_.Reset();
    uint8_t* const bytes = scratch_.Extend(total);
    if (bytes == nullptr) return false;
    ByteCursor(bytes, total)
        .Bytes(AviChunkId(chunk.stream), kFourCCSize)
        .LE32(chunk.length)
        .Bytes(chunk.data, chunk.length)
        .Zeros(pad);

    AviStandardIndex& index = chunk.stream == AviStream::Video ? video_.index : audio_.index;
    index.Add(MoviOffset() + kChunkHeaderSize, StandardIndexSize(chunk));
    Append({bytes, total});
    return true;
}

void AviRiff::AppendStandardIndexes() {
    AppendStandardIndex(video_);
    AppendStandardIndex(audio_);
}

void AviRiff::AppendStandardIndex(Stream& stream) {
    const std::span<const uint8_t> chunk = stream.index.Compose(base_ + movi_at_);
    stream.position = base_ + size_;
    stream.size = static_cast<uint32_t>(chunk.size());
    Append(chunk);
}

void AviRiff::Append(std::span<const uint8_t> bytes) {
    const auto length = static_cast<uint32_t>(bytes.size());
    output_.write(output_.user, bytes.data(), length, base_ + size_);
    size_ += length;
}

void AviRiff::WriteAt(uint32_t at, const ByteCursor& bytes) const {
    output_.write(output_.user, bytes.Data(), bytes.Size(), base_ + at);
}

AviRiffWriter::AviRiffWriter(AviOutput output, CGrowBuffer& scratch) : AviRiff(output, scratch, 0, kMoviFourCCAt) {
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

bool AviRiffWriter::Write(const AviChunk& chunk) {
    const uint32_t offset = MoviOffset();
    if (!AppendChunk(chunk)) return false;
    legacy_index_.Add(chunk.stream, LegacyIndexFlags(chunk), offset, chunk.length);
    return true;
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

AvixWriter::AvixWriter(AviOutput output, CGrowBuffer& scratch, uint64_t base)
    : AviRiff(output, scratch, base, kAvixMoviFourCCAt) {
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
