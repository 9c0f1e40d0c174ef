#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "exact/exact_package.h"
#include "exact/mp4_fragment.h"
#include "exact/mp4_track.h"
#include "exact/video_config.h"

namespace Orvane::Muxora {

// What fmp4 and hmp4 share: frames become samples, samples are gathered into fragments, and each of the two says what
// becomes of a finished one.
//
// One video track and one audio track. Pictures begin with a key frame that says how they are coded; what comes ahead
// of it vanishes, and sound with it once a picture was seen. Parameter sets stand in the sample entries: those at the
// front of a frame are left out of its sample. Each ADTS frame becomes a sample of its own.
//
// A fragment holds 64 MiB or a minute at most, whatever the caller wished, or what the format sets lower; a frame of
// more than 512 MiB is refused.
class CFragmentedMp4 : public CExactPackage {
  public:
    uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) final;
    uint32_t SetFragmentParam(const MXFragmentParam& param) final;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

    static constexpr size_t kLargestFragment = size_t{64} << 20;
    static constexpr uint32_t kLargestFrame = 512u << 20;
    static constexpr int64_t kLongestFragmentSeconds = 60;

  protected:
    CFragmentedMp4(uint32_t format, const MXCreateParam* param, FrameClock::Origin origin)
        : CExactPackage(format, param, 0, origin) {}

    // The tracks are known, or one of them changed: what a reader needs first goes out.
    virtual void EmitTracks() = 0;
    // Bytes that a fragment holds with MX_FRAGMENT_GOP, unless one picture alone has more; a wish, where tracks are
    // waited for.
    virtual size_t PreferredFragment() const { return kLargestFragment; }
    // A fragment is full. The samples go away behind this.
    virtual void EmitFragment(std::span<const FragmentPart> parts, const BlockNote& note) = 0;

    uint32_t Finish() override;

    const Mp4Track& VideoTrack() const { return video_.info; }
    const Mp4Track& AudioTrack() const { return audio_.info; }
    const MXFragmentParam& Fragments() const { return fragments_; }
    bool TracksKnown() const { return tracks_known_; }
    // Those that are there, pictures first.
    std::vector<const Mp4Track*> Tracks() const;
    // moof, mdat and the samples behind `head`, in one piece; good until the next sample.
    std::span<const uint8_t> Assemble(std::span<const FragmentPart> parts, const std::vector<uint8_t>& head);

  private:
    struct Stream {
        Mp4Track info;
        FragmentTrack samples;
        int64_t first_dts = 0;  // of the fragment, in the media's time
        int64_t last_dts = 0;
    };

    // What a sample entry of sound is made of.
    struct AudioForm {
        uint32_t encode_type = 0;
        uint32_t sample_rate = 0;
        uint32_t channels = 0;
        uint16_t config = 0;  // AudioSpecificConfig
        bool operator==(const AudioForm&) const = default;
    };

    uint32_t PackVideo(const MXFrameInfo& frame) final;
    uint32_t PackAudio(const MXFrameInfo& frame, const AudioMeasure& measure) final;
    void Forget(bool picture) final;

    void CatchUp();
    void AfterSample(Stream& stream, bool has_duration);

    void FindEntry(const MXFrameInfo& frame);
    static AudioForm FormOf(const MXFrameInfo& frame, const AudioMeasure& measure);
    static Mp4Entry EntryOf(const AudioForm& form);
    void UseEntry(Stream& stream, Mp4Entry entry, int64_t next);
    void Open(Stream& stream, const FrameTime& time, Mp4Entry entry);
    static int64_t MediaTime(const Stream& stream, const FrameTime& time);
    static Mp4Sample Sample(const Stream& stream, const FrameTime& time);
    void AddSample(Stream& stream, const Mp4Sample& sample);
    void CutBefore(Stream& stream, int64_t dts, bool key, uint32_t bytes);
    size_t BytesWith(uint32_t bytes) const;
    bool IsFull(const Stream& stream, int64_t dts, bool key, uint32_t bytes) const;
    void KnowTracks(bool now);
    void RefreshTracks();
    void Flush(Stream* alone, const Stream* ended, const int64_t* next);
    bool IsByFrame() const { return fragments_.mode == MX_FRAGMENT_CHUNK; }
    bool OnlyKeyFrames(const Stream& stream) const;

    MXFragmentParam fragments_{sizeof(MXFragmentParam), MX_FRAGMENT_GOP, 0, MX_TRACKS_BOTH, 0, 0};
    Stream video_;
    Stream audio_;
    CVideoConfig config_;
    AudioForm audio_form_;
    // What the frame at hand needs, if that may be another sample entry than the one in force.
    std::optional<Mp4Entry> next_entry_;
    bool saw_picture_ = false;
    bool tracks_known_ = false;
    bool tracks_stale_ = false;
    // A stream whose fragment was to end with the frame before, and could not for want of memory.
    Stream* owed_ = nullptr;
};

}  // namespace Orvane::Muxora
