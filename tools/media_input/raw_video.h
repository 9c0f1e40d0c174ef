// H.264 and H.265 as they come from an encoder: no container, no times.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "media_input/av_handles.h"
#include "media_input/file_bytes.h"
#include "media_input/media_source.h"
#include "media_input/nal_units.h"

namespace Orvane::Muxora::Tools {

// Cuts a raw stream into access units and gives them the times that it has none of: decoded one after the other at the
// rate that the user or the SPS says, shown in the order of their picture order counts.
class RawVideo : public StreamQueue {
  public:
    // Is this stream one, and libavformat's format name that of a raw file?
    static bool Takes(const AVFormatContext& format, const AVStream& stream);

    // Reads the file itself; what comes through a pipe is given by Put. `frame_rate` replaces the stream's unless 0.
    RawVideo(const AVStream& stream, MediaStream about, uint32_t frame_rate, const std::string& path);

    // Reads until a frame is ready; false at the end, or where there is no file to read.
    bool Fill();
    // Bytes in pieces of any size.
    void Put(ByteSpan bytes);
    void End();

  private:
    struct Release {
        void operator()(MXAccessUnits units) const { MX_DestroyAccessUnits(units); }
    };
    // A picture that waits for its place among those that are shown. Times are counted in halves of a frame.
    struct Picture {
        MediaFrame frame;
        int64_t decode = 0;
        int64_t show = -1;  // not known yet
        int64_t length = 0;
    };

    bool GetUnit();
    void Take(const MXAccessUnit& unit);
    void Begin(const MXAccessUnit& first);
    FrameBytes BytesOf(ByteSpan unit, bool key, bool& restarts) const;
    int PictureOrder(const MediaFrame& frame);
    bool FallsBack(int order, bool frame) const;
    void ShowOne();
    void Settle(size_t hold);
    int64_t ToUs(int64_t halves) const;

    uint32_t stated_rate_;
    AVRational rate_;
    std::unique_ptr<std::remove_pointer_t<MXAccessUnits>, Release> units_;
    AvPtr<AVCodecContext> parser_context_;
    AvPtr<AVCodecParserContext> parser_;
    std::vector<uint8_t> parameter_sets_;
    std::vector<uint8_t> head_;  // of the picture that is looked at
    std::string path_;
    std::unique_ptr<FileBytes> file_;
    size_t given_ = 0;  // of the file's bytes
    bool ended_ = false;
    bool begun_ = false;

    std::deque<Picture> waiting_;                           // in decoding order
    uint64_t first_number_ = 0;                             // of the first one that waits
    std::set<std::tuple<int64_t, int, uint64_t>> to_show_;  // sequence, picture order count, number
    size_t hold_ = 0;                                       // so many may have to wait for one that comes later
    int64_t sequence_ = 0;
    std::optional<std::pair<int64_t, int>> last_shown_;  // its sequence and picture order count
    int64_t decode_clock_ = 0;
    int64_t show_clock_ = 0;
    int64_t delay_ = 0;  // from decoding to showing
};

}  // namespace Orvane::Muxora::Tools
