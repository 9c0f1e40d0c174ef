// One track of a presentation on demand, as CMAF segments in files (ISO/IEC 23000-19).
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "common/packer.h"
#include "media_input/media_input.h"
#include "streaming/manifest.h"
#include "streaming/playlist.h"

namespace Orvane::Muxora::Tools {

// A segment ends at the first key frame past the target, the last one of sound at any frame.
class CmafRendition {
  public:
    struct Segment {
        int64_t start = 0;  // when its first picture is shown, in ticks
        int64_t end = 0;    // when the next segment's is
        uint64_t bytes = 0;
        unsigned init = 0;
    };

    // Writes FOLDER/NAME-init0.mp4, FOLDER/NAME-0.m4s and so on. Throws Failure for a codec that players do not take.
    CmafRendition(std::string folder, std::string name, const MediaStream& stream, int64_t target_ms);

    // Throws Failure.
    void Give(MediaFrame& frame);
    // The last segment is whole. Throws Failure when there is none.
    void Finish();

    const MediaStream& About() const { return about_; }
    bool IsVideo() const { return about_.type == MX_FRAME_VIDEO; }
    const std::string& Name() const { return name_; }
    const std::vector<Segment>& Segments() const { return segments_; }
    // Of the files, the initialisation segments included.
    uint64_t Bytes() const { return bytes_; }
    const Tally& Frames() const { return IsVideo() ? packer_.Video() : packer_.Audio(); }
    // Its codecs, one behind the other (RFC 6381): one, unless the stream changes.
    std::string Codecs() const;
    unsigned Initialisations() const { return inits_; }
    // Can each segment be decoded without another one? Open groups of pictures cannot.
    bool IsIndependent() const { return sap_ == 1; }

    double SecondsAt(int64_t ticks) const { return static_cast<double>(ticks) / time_scale_; }
    double Seconds(const Segment& segment) const { return SecondsAt(segment.end - segment.start); }
    double LongestSegment() const;
    // Bits a second, of any stretch of 0.5 to 1.5 times the target (RFC 8216 4.3.4.2), and of the whole.
    uint64_t PeakBitRate(double target) const;
    uint64_t AverageBitRate() const;

    // The names in it begin with `prefix`.
    Streaming::MediaPlaylist Playlist(const std::string& prefix, double target) const;
    Streaming::Representation Representation(const std::string& prefix, double target) const;
    int StartsWithSap() const { return sap_; }

  private:
    // The frames that wait in the library for the fragment's end.
    struct Pending {
        uint32_t scale = 1;
        int64_t first_dts = 0;
        int64_t first_pts = 0;
        int64_t earliest_pts = 0;
    };

    PackerSettings Settings(int64_t target_ms) const;
    void Note(const MediaFrame& frame);
    void Store(const MXExactBlock& block);
    void StoreInit(const MXExactBlock& block);
    void StoreMedia(const MXExactBlock& block);
    void WriteFile(const std::string& name, const MXOutputBlock& block, bool append);

    std::string folder_;
    std::string name_;
    MediaStream about_;
    double target_;  // seconds
    std::optional<Pending> pending_;
    std::vector<Segment> segments_;
    std::set<std::string> codecs_;
    unsigned inits_ = 0;
    uint32_t time_scale_ = 1;
    uint64_t bytes_ = 0;
    int sap_ = 1;
    int64_t begun_ = 0;  // of the latest segment: its start, with priming
    Packer packer_;      // writes through the members above
};

}  // namespace Orvane::Muxora::Tools
