#include "containers/avi_index.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kChunkHeaderSize = 8;
constexpr uint32_t kFourCCSize = 4;

constexpr uint8_t kVideoChunkId[] = {'0', '0', 'd', 'c'};
constexpr uint8_t kAudioChunkId[] = {'0', '1', 'w', 'b'};

constexpr uint32_t kStandardHeaderSize = 32;
constexpr uint32_t kStandardEntrySize = 8;
constexpr uint16_t kStandardLongsPerEntry = 2;
constexpr uint8_t kIndexOfChunks = 1;  // AVI_INDEX_OF_CHUNKS

constexpr uint32_t kSuperHeaderSize = 32;
constexpr uint16_t kSuperLongsPerEntry = 4;
constexpr uint8_t kIndexOfIndexes = 0;  // AVI_INDEX_OF_INDEXES

constexpr uint32_t kLegacyEntrySize = 16;

// The index so far, with room for its header, which is filled in last. An index that lost its memory starts again.
bool HasHeaderRoom(CGrowBuffer& chunk, uint32_t header_size) {
    return chunk.Size() >= header_size || chunk.Extend(header_size) != nullptr;
}

uint8_t* NewEntry(CGrowBuffer& chunk, uint32_t header_size, uint32_t entry_size) {
    return HasHeaderRoom(chunk, header_size) ? chunk.Extend(entry_size) : nullptr;
}

}  // namespace

const uint8_t* AviChunkId(AviStream stream) {
    return stream == AviStream::Video ? kVideoChunkId : kAudioChunkId;
}

void AviStandardIndex::Add(uint32_t offset, uint32_t size) {
    uint8_t* const entry = NewEntry(chunk_, kStandardHeaderSize, kStandardEntrySize);
    if (entry == nullptr) return;
    ByteCursor(entry, kStandardEntrySize)
        .LE32(offset)  // dwOffset
        .LE32(size);   // dwSize
}

uint32_t AviStandardIndex::Entries() const {
    return chunk_.Size() < kStandardHeaderSize ? 0 : (chunk_.Size() - kStandardHeaderSize) / kStandardEntrySize;
}

std::span<const uint8_t> AviStandardIndex::Compose(uint64_t base) {
    if (!HasHeaderRoom(chunk_, kStandardHeaderSize)) return {};
    const uint8_t id[] = {'i', 'x', '0', static_cast<uint8_t>(stream_ == AviStream::Video ? '0' : '1')};
    ByteCursor(chunk_.Data(), kStandardHeaderSize)
        .Bytes(id, kFourCCSize)
        .LE32(chunk_.Size() - kChunkHeaderSize)   // cb
        .LE16(kStandardLongsPerEntry)             // wLongsPerEntry
        .U8(0)                                    // bIndexSubType
        .U8(kIndexOfChunks)                       // bIndexType
        .LE32(Entries())                          // nEntriesInUse
        .Bytes(AviChunkId(stream_), kFourCCSize)  // dwChunkId
        .LE64(base)                               // qwBaseOffset
        .LE32(0);                                 // dwReserved
    return {chunk_.Data(), chunk_.Size()};
}

void AviLegacyIndex::Add(AviStream stream, uint32_t flags, uint32_t offset, uint32_t length) {
    uint8_t* const entry = NewEntry(chunk_, kChunkHeaderSize, kLegacyEntrySize);
    if (entry == nullptr) return;
    ByteCursor(entry, kLegacyEntrySize)
        .Bytes(AviChunkId(stream), kFourCCSize)  // ckid
        .LE32(flags)                             // dwFlags
        .LE32(offset)                            // dwChunkOffset
        .LE32(length);                           // dwChunkLength
}

std::span<const uint8_t> AviLegacyIndex::Compose() {
    if (!HasHeaderRoom(chunk_, kChunkHeaderSize)) return {};
    ByteCursor(chunk_.Data(), kChunkHeaderSize).Text("idx1").LE32(chunk_.Size() - kChunkHeaderSize);
    return {chunk_.Data(), chunk_.Size()};
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
