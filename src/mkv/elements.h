// The Matroska elements that the packager writes. An element is a serialiser, not a tree: it writes its bytes at a
// place that has room for them and tells how many those were. Which element goes where is the packager's business.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace Orvane::Muxora {

// TrackType of a track entry.
enum class MkvTrackKind : uint8_t { kNone = 0, kVideo = 1, kAudio = 2 };

// What a track entry says. The two views are copied.
struct MkvTrackInfo {
    uint8_t number = 0;
    std::string_view codec_id;
    std::span<const uint8_t> codec_private;
    // Video
    uint32_t frame_rate = 0;
    uint16_t width = 0;
    uint16_t height = 0;
    // Audio
    uint8_t channels = 0;
    uint8_t bit_depth = 0;
    double sample_rate = 0;
};

// One block: a frame's bytes, its kind (frame_sub_type of a video frame, MX_FRAME_AUDIO for audio) and its time within
// the cluster in ms.
struct MkvBlock {
    const uint8_t* data = nullptr;
    uint32_t length = 0;
    uint32_t kind = 0;
    uint16_t timecode = 0;
};

// The base of the elements. Writers return the number of bytes, or MX_FAILED (3) for a null place.
class CBasicatom {
  public:
    CBasicatom() = default;
    CBasicatom(const CBasicatom&) = delete;
    CBasicatom& operator=(const CBasicatom&) = delete;
    virtual ~CBasicatom() = default;
    virtual void SetTrackInfo(MkvTrackKind /*kind*/, const MkvTrackInfo* /*info*/) {}
    virtual void SetFrame(uint8_t /*track*/, const MkvBlock* /*block*/) {}
    // Counts what WriteBody wrote last.
    virtual void AddBodySize() {}
    // The ID and the body.
    virtual uint32_t WriteAll(uint8_t* out);
    virtual uint32_t GetTotalSize() { return total_size_; }
    virtual uint32_t WriteId(uint8_t* out);
    virtual uint32_t WriteBody(uint8_t* /*out*/) { return 0; }

  protected:
    uint32_t body_size_ = 0;
    uint32_t total_size_ = 12;
};

// SeekHead with a Void behind it: a span of fixed size at the start of the Segment. Its entries have no positions yet.
class CMetaseekBox : public CBasicatom {
  public:
    static constexpr uint32_t kTotalSize = 500;
    static constexpr uint32_t kBodySize = 51;

    uint32_t WriteAll(uint8_t* out) override;
    uint32_t GetTotalSize() override { return kTotalSize; }
    // The three Seek entries.
    uint32_t WriteBody(uint8_t* out) override;
};

// The three Seek entries with their positions, relative to the Segment data. Takes CMetaseekBox::kBodySize bytes.
uint32_t WriteSeekEntries(uint8_t* out, uint32_t info_position, uint32_t tracks_position, uint32_t cues_position);

// Info: the time scale, the date and who wrote the file.
class CSegInfo : public CBasicatom {
  public:
    static constexpr uint32_t kTotalSize = 62;

    uint32_t WriteAll(uint8_t* out) override;
    uint32_t GetTotalSize() override;
};

// The block of the moment as a SimpleBlock.
class CClusters : public CBasicatom {
  public:
    // Size of a block with that much data.
    static uint64_t BlockSize(uint32_t data_length);
    // How much of that stands ahead of the data.
    static uint32_t HeadSize(uint32_t data_length) {
        return static_cast<uint32_t>(BlockSize(data_length) - data_length);
    }
    // Is this a kind that SetFrame takes?
    static bool IsBlockKind(uint32_t kind);

    // Another kind than those that make a block leaves the block before in its place.
    void SetFrame(uint8_t track, const MkvBlock* block) override;
    void AddBodySize() override { body_size_ += last_block_length_; }
    uint32_t GetTotalSize() override;
    uint32_t WriteId(uint8_t* out) override;
    // Writes the block; nothing before the first one was set. Afterwards the block refers to the bytes in `out` instead
    // of the frame, which may be gone when the block is written once more: `out` has to keep them until the next block.
    uint32_t WriteBody(uint8_t* out) override;

  private:
    bool has_block_ = false;
    uint8_t track_ = 0;
    uint8_t flags_ = 0;
    MkvBlock block_;
    uint32_t last_block_length_ = 0;
};

// One track entry, or just the ID of the element around all of them.
class CTracks : public CBasicatom {
  public:
    // Longer ones are left out: an entry with half a configuration is of no use. The second limit is what a video entry
    // has room for in the file.
    static constexpr uint32_t kMaxCodecId = 20;
    static constexpr uint32_t kMaxCodecPrivate = 351;
    // No entry is larger; all its other fields together take less than 64 bytes.
    static constexpr uint32_t kMaxEntrySize = 64 + kMaxCodecId + kMaxCodecPrivate;

    // Size of the entry that would be written, if nothing were left out.
    static uint64_t EntrySize(MkvTrackKind kind, const MkvTrackInfo& info);

    // A null `info` empties the entry.
    void SetTrackInfo(MkvTrackKind kind, const MkvTrackInfo* info) override;
    void AddBodySize() override { body_size_ += entry_length_; }
    uint32_t GetTotalSize() override;
    uint32_t WriteId(uint8_t* out) override;
    // Writes at most kMaxEntrySize bytes.
    uint32_t WriteBody(uint8_t* out) override;

  private:
    MkvTrackKind kind_ = MkvTrackKind::kNone;
    MkvTrackInfo info_;  // its views refer to the two areas
    char codec_id_[kMaxCodecId] = {};
    uint8_t codec_private_[kMaxCodecPrivate] = {};
    uint32_t entry_length_ = 0;
};

}  // namespace Orvane::Muxora
