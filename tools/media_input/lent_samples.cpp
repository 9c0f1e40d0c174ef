#include "media_input/lent_samples.h"

#include <sys/stat.h>

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "media_input/media_frame.h"

namespace Orvane::Muxora::Tools {

namespace {

// Sizes and start codes are all that is read through it.
constexpr int kBuffer = 4096;

}  // namespace

// The mapping, in pieces whose memory is given back when nothing of them is lent: formats write into what they get, and
// the pages that they wrote to are no longer the file's.
class LentSamples::Windows {
  public:
    explicit Windows(std::unique_ptr<MappedFile> file) : file_(std::move(file)), lent_(file_->Size() / kWindow + 1) {}

    const MappedFile& File() const { return *file_; }
    void Take(size_t from, size_t to) {
        ++lent_[from / kWindow];
        ++lent_[to / kWindow];
        if (to / kWindow == current_) return;
        const size_t before = std::exchange(current_, to / kWindow);
        ForgetIfFree(before);
    }
    void Return(size_t from, size_t to) {
        --lent_[from / kWindow];
        --lent_[to / kWindow];
        ForgetIfFree(from / kWindow);
        ForgetIfFree(to / kWindow);
    }

  private:
    static constexpr size_t kWindow = size_t{16} << 20;

    void ForgetIfFree(size_t window) const {
        if (window == current_ || lent_[window] != 0) return;
        file_->Forget(window * kWindow, std::min((window + 1) * kWindow, file_->Size()));
    }

    std::unique_ptr<MappedFile> file_;
    std::vector<uint32_t> lent_;  // of each window, ends of samples
    size_t current_ = 0;
};

std::unique_ptr<LentSamples> LentSamples::Of(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size <= 0) return nullptr;
    std::unique_ptr<LentSamples> samples(new LentSamples(path, status.st_size));
    return samples->windows_ ? std::move(samples) : nullptr;
}

LentSamples::LentSamples(const std::string& path, int64_t size) : path_(path), file_(path), size_(size) {
    auto mapped = MappedFile::Map(file_.Number(), static_cast<size_t>(size));
    if (!mapped) return;
    windows_ = std::make_shared<Windows>(std::move(mapped));
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBuffer));
    if (buffer != nullptr) context_ = avio_alloc_context(buffer, kBuffer, 0, this, OnRead, nullptr, OnSeek);
    if (context_ == nullptr) {
        av_free(buffer);
        throw std::bad_alloc();
    }
}

LentSamples::~LentSamples() {
    if (context_ == nullptr) return;
    av_freep(&context_->buffer);
    avio_context_free(&context_);
}

int LentSamples::ReadAt(int64_t position, uint8_t* buffer, int size) const {
    ssize_t count = 0;
    do {
        count = pread(file_.Number(), buffer, static_cast<size_t>(size), position);
    } while (count < 0 && errno == EINTR);
    if (count < 0) return AVERROR(errno);
    return count == 0 ? AVERROR_EOF : static_cast<int>(count);
}

int LentSamples::OnRead(void* opaque, uint8_t* buffer, int size) {
    auto& self = *static_cast<LentSamples*>(opaque);
    // More than its buffer libavformat reads straight into a packet.
    const bool pass = self.passing_ && size >= kLarge - kBuffer && self.position_ + size <= self.size_;
    const int count = pass ? size : self.ReadAt(self.position_, buffer, size);
    self.passed_ = self.passed_ || pass;
    if (count > 0) self.position_ += count;
    return count;
}

int64_t LentSamples::OnSeek(void* opaque, int64_t offset, int whence) {
    auto& self = *static_cast<LentSamples*>(opaque);
    if ((whence & AVSEEK_SIZE) != 0) return self.size_;
    if (whence == SEEK_CUR) offset += self.position_;
    if (whence == SEEK_END) offset += self.size_;
    if (offset < 0) return AVERROR(EINVAL);
    return self.position_ = offset;
}

bool LentSamples::Lend(AVPacket& packet) {
    struct Loan {
        std::shared_ptr<Windows> windows;
        size_t from;
        size_t to;
    };
    // Those who read behind the end of a frame must not run over the last page.
    const int64_t end = packet.pos + packet.size + static_cast<int64_t>(MediaFrame::kSpare);
    if (packet.pos < 0 || packet.size < kLarge || end > size_) return false;
    auto loan = std::make_unique<Loan>();
    *loan = {windows_, static_cast<size_t>(packet.pos), static_cast<size_t>(end - 1)};
    uint8_t* const data = windows_->File().Data() + packet.pos;
    const auto give_back = [](void* opaque, uint8_t* /*data*/) {
        const std::unique_ptr<Loan> back(static_cast<Loan*>(opaque));
        back->windows->Return(back->from, back->to);
    };
    AVBufferRef* const buffer = av_buffer_create(data, static_cast<size_t>(end - packet.pos), give_back, loan.get(), 0);
    if (buffer == nullptr) throw std::bad_alloc();
    windows_->Take(loan->from, loan->to);
    windows_->File().Fetch(loan->from, loan->to);
    static_cast<void>(loan.release());
    av_buffer_unref(&packet.buf);
    packet.buf = buffer;
    packet.data = data;
    return true;
}

int LentSamples::Read(AVFormatContext& format, int lent, AVPacket& packet) {
    passed_ = false;
    passing_ = true;
    const int result = av_read_frame(&format, &packet);
    passing_ = false;
    if (result < 0 || (packet.stream_index == lent && Lend(packet))) return result;
    for (int done = 0; passed_ && done < packet.size;) {
        const int count = ReadAt(packet.pos + done, packet.data + done, packet.size - done);
        if (count <= 0) throw BecameShorter(path_);
        done += count;
    }
    return result;
}

void LentSamples::CheckWhole() const {
    if (windows_->File().Shrunk()) throw BecameShorter(path_);
}

}  // namespace Orvane::Muxora::Tools
