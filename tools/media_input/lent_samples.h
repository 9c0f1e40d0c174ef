#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "media_input/av_handles.h"
#include "media_input/descriptor.h"
#include "media_input/mapped_file.h"

namespace Orvane::Muxora::Tools {

// Large samples of a file that lists them are lent from its mapping: libavformat tells where each lies, and its reading
// of them, which would be one more copy, is left out.
class LentSamples {
  public:
    // Shorter ones are read: to map a page costs about as much as to copy it.
    static constexpr int64_t kLarge = 65536;

    // Null where the file cannot be mapped. Throws InputError.
    static std::unique_ptr<LentSamples> Of(const std::string& path);
    ~LentSamples();
    LentSamples(const LentSamples&) = delete;
    LentSamples& operator=(const LentSamples&) = delete;

    // What libavformat reads the file through, as long as this lives.
    AVIOContext* Context() { return context_; }
    // Like av_read_frame, of a file whose packets are bytes of it as they lie there. Samples of the stream `lent` may
    // be lent: bytes that may be changed, and behind them what follows in the file. Throws InputError.
    int Read(AVFormatContext& format, int lent, AVPacket& packet);
    // Throws InputError if the file became shorter while something was lent.
    void CheckWhole() const;

  private:
    class Windows;

    LentSamples(const std::string& path, int64_t size);
    static int OnRead(void* opaque, uint8_t* buffer, int size);
    static int64_t OnSeek(void* opaque, int64_t offset, int whence);
    int ReadAt(int64_t position, uint8_t* buffer, int size) const;
    bool Lend(AVPacket& packet);

    std::string path_;
    Descriptor file_;
    int64_t size_;
    std::shared_ptr<Windows> windows_;
    AVIOContext* context_ = nullptr;
    int64_t position_ = 0;
    bool passing_ = false;  // large pieces are not read
    bool passed_ = false;   // one was not
};

}  // namespace Orvane::Muxora::Tools
