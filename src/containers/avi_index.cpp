#include "containers/avi_index.h"

#include "MuxoraAPI.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kChunkHeaderSize = 8;
constexpr uint32_t kFourCCSize = 4;

constexpr uint8_t kVideoChunkId[] = {'0', '0', 'd', 'c'};
constexpr uint8_t kAudioChunkId[] = {'0', '1', 'w', 'b'};

constexpr uint32_t kStandardEntrySize = 8;
constexpr uint16_t kStandardLongsPerEntry = 2;
constexpr uint8_t kIndexOfChunks = 1;  // AVI_INDEX_OF_CHUNKS

constexpr uint32_t kSuperHeaderSize = 32;
constexpr uint16_t kSuperLongsPerEntry = 4;
constexpr uint8_t kIndexOfIndexes = 0;  // AVI_INDEX_OF_INDEXES

constexpr uint32_t kLegacyEntrySize = 16;

// Makes room for one more entry, and for the header in front of the first.
bool ReserveEntry(CGrowBuffer& chunk, uint32_t header_size, uint32_t entry_size) {
    if (chunk.Reserve(chunk.Size() == 0 ? header_size + entry_size : entry_size) != MX_OK) return false;
    if (chunk.Size() == 0) chunk.Extend(header_size);
    return true;
}

}  // namespace

const uint8_t* AviChunkId(AviStream stream) {
    return stream == AviStream::Video ? kVideoChunkId : kAudioChunkId;
}

bool AviStandardIndex::Reserve() {
    return ReserveEntry(chunk_, kHeaderSize, kStandardEntrySize);
}

void AviStandardIndex::Add(uint32_t offset, uint32_t size) {
    if (!Reserve()) return;
    ByteCursor(chunk_.Extend(kStandardEntrySize), kStandardEntrySize)
        .LE32(offset)  // dwOffset
        .LE32(size);   // dwSize
}

uint32_t AviStandardIndex::Entries() const {
    return chunk_.Size() == 0 ? 0 : (chunk_.Size() - kHeaderSize) / kStandardEntrySize;
}

std::span<const uint8_t> AviStandardIndex::Compose(uint64_t base) {
    const std::span<uint8_t> chunk = chunk_.Size() != 0 ? std::span(chunk_.Data(), chunk_.Size()) : std::span(empty_);
    const uint8_t id[] = {'i', 'x', '0', static_cast<uint8_t>(stream_ == AviStream::Video ? '0' : '1')};
    ByteCursor(chunk.data(), kHeaderSize)
        .Bytes(id, kFourCCSize)
        .LE32(static_cast<uint32_t>(chunk.size()) - kChunkHeaderSize)  // cb
        .LE16(kStandardLongsPerEntry)                                  // wLongsPerEntry
        .U8(0)                                                         // bIndexSubType
        .U8(kIndexOfChunks)                                            // bIndexType
        .LE32(Entries())                                               // nEntriesInUse
        .Bytes(AviChunkId(stream_), kFourCCSize)                       // dwChunkId
        .LE64(base)                                                    // qwBaseOffset
        .LE32(0);                                                      // dwReserved
    return chunk;
}

bool AviLegacyIndex::Reserve() {
    return ReserveEntry(chunk_, kHeaderSize, kLegacyEntrySize);
}

void AviLegacyIndex::Add(AviStream stream, uint32_t flags, uint32_t offset, uint32_t length) {
    if (!Reserve()) return;
    ByteCursor(chunk_.Extend(kLegacyEntrySize), kLegacyEntrySize)
        .Bytes(AviChunkId(stream), kFourCCSize)  // ckid
        .LE32(flags)                             // dwFlags
        .LE32(offset)                            // dwChunkOffset
        .LE32(length);                           // dwChunkLength
}

std::span<const uint8_t> AviLegacyIndex::Compose() {
    const std::span<uint8_t> chunk = chunk_.Size() != 0 ? std::span(chunk_.Data(), chunk_.Size()) : std::span(empty_);
    ByteCursor(chunk.data(), kHeaderSize).Text("idx1").LE32(static_cast<uint32_t>(chunk.size()) - kChunkHeaderSize);
    return chunk;
}

void AviSuperIndex::Add(uint64_t position, uint32_t size, uint32_t duration) {
    if (entries_ == kMaxEntries) return;
    ByteCursor(area_ + entries_ * kEntrySize, kEntrySize)
        .LE64(position)   // qwOffset
        .LE32(size)       // dwSize
        .LE32(duration);  // dwDuration
    ++entries_;
    duration_ += duration;
}

void AviSuperIndex::Write(ByteCursor& out) const {
    uint8_t header[kSuperHeaderSize];
    ByteCursor(header)
        // A file of one RIFF has filler in the place.
        .Bytes(entries_ != 0 ? "indx" : "JUNK", kFourCCSize)
        .LE32(kSize - kChunkHeaderSize)           // cb
        .LE16(kSuperLongsPerEntry)                // wLongsPerEntry
        .U8(0)                                    // bIndexSubType
        .U8(kIndexOfIndexes)                      // bIndexType
        .LE32(entries_)                           // nEntriesInUse
        .Bytes(AviChunkId(stream_), kFourCCSize)  // dwChunkId
        .Zeros(12);                               // dwReserved
    out.Bytes(header, sizeof header).Bytes(area_, sizeof area_).Zeros(kSize - kSuperHeaderSize - sizeof area_);
}

}  // namespace Orvane::Muxora
