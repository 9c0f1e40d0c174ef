// The two kinds of RIFF that make an AVI file: the first, with the header list and "idx1", and the "AVIX" RIFFs of
// OpenDML that follow it past 1 GiB.
#pragma once

#include <cstdint>
#include <span>

#include "containers/avi_header.h"
#include "containers/avi_index.h"
#include "core/grow_buffer.h"

namespace Orvane::Muxora {

// Takes bytes for an absolute position.
struct AviOutput {
    void (*write)(void* user, const void* data, uint32_t length, uint64_t position);
    void* user;
};

// One frame as it goes into a file.
struct AviChunk {
    AviStream stream;
    uint32_t sub_type;  // MXFrameSubType; video only
    const uint8_t* data;
    uint32_t length;
};

// What one RIFF leaves to the next, so that a long file goes on in the memory that it has.
struct AviWork {
    CGrowBuffer chunk;  // each chunk is composed here
    AviStandardIndex video_index{AviStream::Video};
    AviStandardIndex audio_index{AviStream::Audio};
};

// What both kinds have: chunks in a "movi" list, a standard index over each stream, and the limit.
class AviRiff {
  public:
    // Of the whole RIFF so far, its own header included.
    uint32_t Size() const { return size_; }
    bool PastLimit() const;
    // Tells the super indexes where the standard indexes were written last.
    void EnterSuperIndexes(AviHeaderBlock& header) const;

  protected:
    // `movi_at` is the place of the "movi" fourcc in the RIFF; the chunks begin behind it.
    AviRiff(AviOutput output, AviWork& work, uint64_t base, uint32_t movi_at);
    ~AviRiff() = default;

    // Takes all memory that AppendChunk needs. False, with nothing changed, if there is none, or if no chunk can have
    // that length.
    bool ReserveChunk(const AviChunk& chunk);
    // Writes a chunk that there is memory for at the end, and enters it into the standard index.
    void AppendChunk(const AviChunk& chunk);
    void AppendStandardIndexes();
    void Append(std::span<const uint8_t> bytes);
    void WriteAt(uint32_t at, const ByteCursor& bytes) const;
    // Of the next chunk, from the "movi" fourcc.
    uint32_t MoviOffset() const { return size_ - movi_at_; }

  private:
    AviStandardIndex& Index(AviStream stream) {
        return stream == AviStream::Video ? work_.video_index : work_.audio_index;
    }

    // Where a standard index was written last.
    struct Place {
        uint64_t position = 0;
        uint32_t size = 0;
    };

    Place AppendStandardIndex(AviStandardIndex& index);

    AviOutput output_;
    AviWork& work_;
    uint64_t base_;
    uint32_t movi_at_;
    uint32_t size_;
    Place video_index_;
    Place audio_index_;
};

class AviRiffWriter : public AviRiff {
  public:
    AviRiffWriter(AviOutput output, AviWork& work);

    // The start of the file: RIFF header, header list, header of the "movi" list.
    void WriteStart(const AviHeaderBlock& header);
    void WriteHeaderList(const AviHeaderBlock& header);
    // A chunk is in the file and in all its indexes, or nowhere: Write follows a Reserve that was true.
    bool Reserve(const AviChunk& chunk) { return ReserveChunk(chunk) && legacy_index_.Reserve(); }
    void Write(const AviChunk& chunk);
    void Close();
    bool Closed() const { return closed_; }

  private:
    void WriteRiffHeader();
    void WriteMoviHeader();

    AviLegacyIndex legacy_index_;
    uint32_t movi_size_ = 0;  // once closed
    bool closed_ = false;
};

class AvixWriter : public AviRiff {
  public:
    AvixWriter(AviOutput output, AviWork& work, uint64_t base);

    bool Reserve(const AviChunk& chunk) { return ReserveChunk(chunk); }
    void Write(const AviChunk& chunk) { AppendChunk(chunk); }
    void Close();
};

}  // namespace Orvane::Muxora
