#include "recording/recording_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace Orvane::Muxora::Gateway {

namespace {

constexpr uint32_t kFragmentMs = 2000;

// Seconds. What begins further away keeps its times: the format itself brings them near 0.
constexpr int64_t kFarthestStart = int64_t{1} << 30;

// Where the difference overflows, the time as it is: the format repairs it.
int64_t Since(int64_t start, int64_t time) {
    int64_t since = 0;
    return __builtin_sub_overflow(time, start, &since) ? time : since;
}

}  // namespace

RecordingFile::RecordingFile(std::string path, const MXHeaderInfo& header, const Frame& first)
    : path_(std::move(path)),
      start_seconds_(first.dts / first.time_scale),
      start_ticks_(first.dts % first.time_scale),
      start_scale_(first.time_scale) {
    MXCreateParam param{};
    param.user = this;
    param.output = Output;
    handle_.reset(MX_CreateHandle(MX_FORMAT_HMP4, &param));
    if (handle_ == nullptr) throw std::runtime_error("the library does not make recordings (hmp4)");
    descriptor_ = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (descriptor_ < 0) throw std::runtime_error(path_ + ": " + std::strerror(errno));
    MXFragmentParam fragment{};
    fragment.size = sizeof fragment;
    fragment.mode = MX_FRAGMENT_GOP;
    fragment.duration_ms = kFragmentMs;
    MXHeaderInfo info = header;
    info.reserved_gap = 0;
    MXSetFragmentParam(handle_.get(), &fragment);
    if (MX_CreateHeader(handle_.get(), &info) == MX_OK && trouble_ == 0) return;
    // The destructor does not run: nothing is left of what could not be begun.
    close(descriptor_);
    unlink(path_.c_str());
    CheckTrouble();
    throw std::runtime_error(path_ + ": cannot be begun");
}

RecordingFile::~RecordingFile() {
    try {
        Finish();
    } catch (const std::exception&) {
        // It was told before, or there is nobody left to tell.
    }
    if (descriptor_ >= 0) close(descriptor_);
}

void RecordingFile::CheckTrouble() const {
    if (trouble_ != 0) throw std::runtime_error(path_ + ": " + std::strerror(trouble_));
}

// Where the file begins, on another scale: to the nearest tick.
int64_t RecordingFile::Start(uint32_t time_scale) const {
    if (start_seconds_ > kFarthestStart || start_seconds_ < -kFarthestStart) return 0;
    const double rest = static_cast<double>(start_ticks_) * time_scale / start_scale_;
    return start_seconds_ * time_scale + std::llround(rest);
}

void RecordingFile::Give(const Frame& frame) {
    MXFrameInfo info = const_cast<Tools::MediaFrame&>(frame.media).Record();
    const int64_t start = Start(frame.time_scale);
    MXSetFrameTimes(&info, frame.time_scale, Since(start, frame.dts), Since(start, frame.pts), frame.duration);
    // A frame that the format does not take is left out; the recording goes on.
    MX_InputFrame(handle_.get(), &info);
    CheckTrouble();
}

void RecordingFile::Finish() {
    if (finished_ || handle_ == nullptr || descriptor_ < 0) return;
    finished_ = true;
    if (trouble_ == 0) MX_CreateTailer(handle_.get(), nullptr);
    CheckTrouble();
}

int32_t RecordingFile::Output(const MXOutputBlock* block, void* user) {
    static_cast<RecordingFile*>(user)->Write(*block);
    return 0;
}

void RecordingFile::Write(const MXOutputBlock& block) {
    if (trouble_ != 0) return;
    const auto* bytes = static_cast<const char*>(block.data);
    int64_t at = block.seek_type == MX_SEEK_ABSOLUTE ? block.offset : end_;
    size_t left = block.length;
    while (left != 0) {
        const ssize_t written = pwrite(descriptor_, bytes, left, at);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            trouble_ = written < 0 ? errno : ENOSPC;
            return;
        }
        bytes += written;
        at += written;
        left -= static_cast<size_t>(written);
    }
    end_ = std::max(end_, at);
}

}  // namespace Orvane::Muxora::Gateway
