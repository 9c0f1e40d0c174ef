#include "support/pack.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace test {

namespace {

// A file that honours the positions of the blocks.
class FileSink {
  public:
    FileSink(const std::string& path, PackResult& result)
        : out_(path, std::ios::binary | std::ios::trunc), result_(result) {
        if (!out_) throw std::runtime_error("cannot write " + path);
    }

    static int32_t Output(const MXOutputBlock* block, void* user) {
        static_cast<FileSink*>(user)->Take(*block);
        return 0;
    }

    void Finish() {
        if (!out_.flush()) throw std::runtime_error("the file could not be written");
    }

  private:
    void Take(const MXOutputBlock& block) {
        const uint64_t at = block.seek_type == MX_SEEK_ABSOLUTE ? static_cast<uint64_t>(block.offset) : result_.size;
        out_.seekp(static_cast<std::streamoff>(at));
        out_.write(static_cast<const char*>(block.data), block.length);
        result_.size = std::max(result_.size, at + block.length);
        result_.block_sizes.push_back(block.length);
    }

    std::ofstream out_;
    PackResult& result_;
};

void Describe(const std::vector<MediaFrame>& frames, MXHeaderInfo& header) {
    for (const MediaFrame& frame : frames) {
        if (frame.IsVideo() && header.video_present == 0) {
            header.video_present = 1;
            header.video_encode_type = frame.codec;
            header.width = frame.width;
            header.height = frame.height;
            header.frame_rate = static_cast<int32_t>(frame.frame_rate);
        } else if (!frame.IsVideo() && header.audio_present == 0) {
            header.audio_present = 1;
            header.audio_encode_type = frame.codec;
            header.channels = frame.channels;
            header.bits_per_sample = frame.bits_per_sample;
            header.samples_per_sec = frame.samples_per_sec;
        }
    }
}

}  // namespace

bool PackResult::Ok() const {
    return header == MX_OK && tailer == MX_OK &&
           std::all_of(frames.begin(), frames.end(), [](uint32_t code) { return code == MX_OK; });
}

PackResult PackFile(uint32_t format, const std::vector<MediaFrame>& frames, const std::string& path,
                    const PackOptions& options) {
    PackResult result;
    FileSink sink(path, result);
    MXCreateParam param{};
    param.user = &sink;
    param.output = FileSink::Output;
    const std::unique_ptr<void, decltype(&MX_DestroyHandle)> handle(MX_CreateHandle(format, &param), MX_DestroyHandle);
    if (!handle) throw std::runtime_error("no packager for format " + std::to_string(format));
    if (options.rtp != nullptr) MX_SetParam(handle.get(), MX_PARAM_RTP, options.rtp, sizeof *options.rtp);
    MXHeaderInfo header = options.header;
    if (options.describe) Describe(frames, header);
    result.header = MX_CreateHeader(handle.get(), &header);
    for (MediaFrame frame : frames) {
        MXFrameInfo record = frame.Record();
        if (options.adjust) options.adjust(record);
        result.frames.push_back(MX_InputFrame(handle.get(), &record));
    }
    result.tailer = MX_CreateTailer(handle.get(), nullptr);
    sink.Finish();
    return result;
}

}  // namespace test
