// Owners for libav's objects.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

#include <memory>

namespace Orvane::Muxora::Tools {

struct AvRelease {
    void operator()(AVFormatContext* p) const { avformat_close_input(&p); }
    void operator()(AVCodecContext* p) const { avcodec_free_context(&p); }
    void operator()(AVBSFContext* p) const { av_bsf_free(&p); }
    void operator()(AVPacket* p) const { av_packet_free(&p); }
    void operator()(AVCodecParserContext* p) const { av_parser_close(p); }
    void operator()(AVCodecParameters* p) const { avcodec_parameters_free(&p); }
};

template <typename T>
using AvPtr = std::unique_ptr<T, AvRelease>;

}  // namespace Orvane::Muxora::Tools
