// One elementary stream on its way from libav's packets to the library's frames.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "media_input/av_handles.h"
#include "media_input/elementary.h"
#include "media_input/media_source.h"

namespace Orvane::Muxora::Tools {

// The number in the library's counting, or 0 for a codec that it does not take.
uint32_t LibraryCodec(const AVCodecParameters& par);
// What may be given, for messages.
const char* TakenCodecs(uint32_t frame_type);

// What is known of a stream ahead of its first frame. `number` is its number through all inputs, `frame_rate` replaces
// the file's unless 0. Throws InputError for a codec that no format takes.
MediaStream DescribeStream(const AVStream& stream, const std::string& path, int number, uint32_t frame_rate);

class StreamReader : public StreamQueue {
  public:
    // `about` describes the stream; its path and number serve the messages. Throws InputError.
    StreamReader(const AVStream& stream, MediaStream about, const InputOptions& options);

    // Takes the packet's bytes over. Null flushes what is held back at the end of the file.
    void Take(AVPacket* packet);

    int Index() const { return index_; }
    // Of the file's times: the microseconds above are rounded from it.
    AVRational TimeBase() const { return time_base_; }

  private:
    void OpenFilter(const char* name);
    void OpenParser(const AVCodecParameters& par);
    void ReadConfiguration();
    void TakeNewConfiguration(const AVPacket& packet);
    void TakeFiltered(AVPacket& packet);
    void TakeVideo(AVPacket& packet);
    bool TakeUnits(AVPacket& packet, bool key, FrameBytes& bytes) const;
    void TakeAac(const AVPacket& packet);
    void TakePcm(const AVPacket& packet);
    void CutBlocks(bool all);
    uint32_t SubType(const AVPacket& packet);
    MediaFrame Blank() const;
    void Push(MediaFrame frame, int64_t time_us, int64_t pts_us, int64_t dts_us, int64_t duration_us);
    int64_t DurationOf(const AVPacket& packet) const;
    int64_t TimeOf(const AVPacket& packet, int64_t stamp);
    int64_t ToUs(int64_t stamp) const;
    [[noreturn]] void Fail(const std::string& what) const;

    int index_;
    AVRational time_base_;
    AvPtr<AVCodecParameters> par_{avcodec_parameters_alloc()};
    AvPtr<AVBSFContext> filter_;
    AvPtr<AVCodecContext> parser_context_;
    AvPtr<AVCodecParserContext> parser_;
    std::vector<uint8_t> parameter_sets_;  // in Annex-B form
    std::vector<uint8_t> head_;            // of the frame that is looked at
    size_t length_size_ = 0;               // of the lengths ahead of units; 0: they have start codes
    std::optional<AdtsConfig> adts_;
    std::string adts_trouble_;
    uint32_t bitrate_ = 0;

    // Frames without a time follow the last one that had one by whole frame lengths.
    int64_t anchor_us_ = 0;
    int64_t since_anchor_ = -1;
    AVRational frame_length_{0, 1};
    std::optional<int64_t> reorder_us_;

    std::vector<uint8_t> pcm_;
    int64_t pcm_start_us_ = 0;
    int64_t pcm_samples_ = 0;
    int64_t block_samples_ = 0;
    int64_t block_ms_ = 0;
    std::optional<PcmForm> pcm_form_;
    AvPtr<AVPacket> scratch_{av_packet_alloc()};
};

}  // namespace Orvane::Muxora::Tools
