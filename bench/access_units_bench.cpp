// An H.264 stream of 1080p cut into access units: ours, from one piece and from pieces of 64 KiB, against a memcpy of
// the same bytes and against the parser of libavcodec.
#include <benchmark/benchmark.h>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "MuxoraExt.h"
#include "workload.h"

namespace {

// The pictures of the workload, one behind the other.
std::vector<uint8_t> MakeStream() {
    const bench::Workload workload(bench::kFullHd, {MX_VIDEO_H264, MX_AUDIO_AAC});
    std::vector<uint8_t> stream;
    for (const auto& frame : workload.frames()) {
        if (frame.info.frame_type != MX_FRAME_VIDEO) continue;
        const auto* const bytes = static_cast<const uint8_t*>(frame.info.frame_pointer);
        stream.insert(stream.end(), bytes, bytes + frame.info.frame_size);
    }
    return stream;
}
constexpr int kPictures = 250;

const std::vector<uint8_t>& Stream() {
    static const std::vector<uint8_t> stream = MakeStream();
    return stream;
}

void Copy(benchmark::State& state) {
    std::vector<uint8_t> out(Stream().size());
    for (auto _ : state) {
        std::memcpy(out.data(), Stream().data(), out.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(Stream().size()));
}

void Cut(benchmark::State& state) {
    const std::vector<uint8_t>& stream = Stream();
    const size_t piece = state.range(0) != 0 ? static_cast<size_t>(state.range(0)) : stream.size();
    const std::unique_ptr<MXAccessUnitsObject, uint32_t (*)(MXAccessUnits)> units(
        MX_CreateAccessUnits(MX_FRAME_VIDEO, MX_VIDEO_H264, 0), MX_DestroyAccessUnits);
    MXAccessUnit unit{};
    unit.size = sizeof unit;
    for (auto _ : state) {
        int count = 0;
        const auto drain = [&] {
            while (MX_GetAccessUnit(units.get(), &unit) == MX_OK)
                ++count;
        };
        for (size_t at = 0; at < stream.size(); at += piece) {
            MX_PutBytes(units.get(), stream.data() + at, static_cast<uint32_t>(std::min(piece, stream.size() - at)));
            drain();
        }
        MX_EndAccessUnits(units.get());
        drain();
        if (count != kPictures) state.SkipWithError("wrong units");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(stream.size()));
}

void Parse(benchmark::State& state) {
    av_log_set_level(AV_LOG_QUIET);  // of the noise in the slices
    std::vector<uint8_t> stream = Stream();
    const size_t size = stream.size();
    stream.resize(size + AV_INPUT_BUFFER_PADDING_SIZE);
    AVCodecContext* const context = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_H264));
    for (auto _ : state) {
        AVCodecParserContext* const parser = av_parser_init(AV_CODEC_ID_H264);
        int count = 0;
        for (size_t at = 0;;) {
            uint8_t* data = nullptr;
            int length = 0;
            const auto left = static_cast<int>(size - at);
            at += static_cast<size_t>(av_parser_parse2(parser, context, &data, &length, stream.data() + at, left,
                                                       AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0));
            count += length != 0 ? 1 : 0;
            if (left == 0 && length == 0) break;
        }
        if (count != kPictures) state.SkipWithError("wrong units");
        av_parser_close(parser);
    }
    AVCodecContext* released = context;
    avcodec_free_context(&released);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

BENCHMARK(Copy)->Name("access_units/memcpy");
BENCHMARK(Cut)->Name("access_units/one_piece")->Arg(0);
BENCHMARK(Cut)->Name("access_units/pieces")->Arg(65536)->Arg(1 << 20);
BENCHMARK(Parse)->Name("access_units/libavcodec_parser");

}  // namespace
