// The three indexes of an AVI file: "idx1" of the first RIFF, and the standard and super indexes of OpenDML (OpenDML
// AVI File Format Extensions 1.02, 3.0).
#pragma once

#include <cstdint>
#include <span>

#include "core/byte_writer.h"
#include "core/grow_buffer.h"

namespace Orvane::Muxora {

// The two streams that a file can have.
enum class AviStream : uint8_t { Video, Audio };

// The fourcc of a stream's chunks: "00dc" or "01wb".
const uint8_t* AviChunkId(AviStream stream);

// "ix00" or "ix01": the chunks of one stream in one RIFF, 8 bytes each.
class AviStandardIndex {
  public:
    explicit AviStandardIndex(AviStream stream) : stream_(stream) {}

    // Drops the entries and keeps their memory.
    void Reset() { chunk_.Reset(); }
    // Makes room for an entry, so that adding it can't fail. False, with nothing changed, if there is no memory.
    bool Reserve();
    // `offset` of a chunk's data from the base; its length, with the top bit set if it is no key frame.
    void Add(uint32_t offset, uint32_t size);
    uint32_t Entries() const;
    // The whole chunk, good until the next call. `base` is the position that the offsets count from.
    std::span<const uint8_t> Compose(uint64_t base);

  private:
    static constexpr uint32_t kHeaderSize = 32;

    AviStream stream_;
    CGrowBuffer chunk_;                // room for the header, the entries behind it; empty without entries
    uint8_t empty_[kHeaderSize] = {};  // the chunk without entries
};

// "idx1": all chunks of the first RIFF, 16 bytes each.
class AviLegacyIndex {
  public:
    // As in AviStandardIndex.
    bool Reserve();
    void Add(AviStream stream, uint32_t flags, uint32_t offset, uint32_t length);
    // The whole chunk, good until the next call.
    std::span<const uint8_t> Compose();

  private:
    static constexpr uint32_t kHeaderSize = 8;

    CGrowBuffer chunk_;  // as there
    uint8_t empty_[kHeaderSize] = {};
};

// "indx" in a stream list: where the standard indexes of that stream lie.
class AviSuperIndex {
  public:
    static constexpr uint32_t kSize = 1032;
    // What fits; entries beyond are not kept.
    static constexpr uint32_t kMaxEntries = 62;

    explicit AviSuperIndex(AviStream stream) : stream_(stream) {}

    void Add(uint64_t position, uint32_t size, uint32_t duration);
    uint32_t Entries() const { return entries_; }
    // Sum over the entries, in chunks.
    uint32_t Duration() const { return duration_; }
    // The whole block, of fixed size.
    void Write(ByteCursor& out) const;

  private:
    static constexpr uint32_t kEntrySize = 16;

    AviStream stream_;
    uint32_t entries_ = 0;
    uint32_t duration_ = 0;
    uint8_t area_[kMaxEntries * kEntrySize] = {};
};

}  // namespace Orvane::Muxora
