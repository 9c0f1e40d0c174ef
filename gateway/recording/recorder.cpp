#include "recording/recorder.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <utility>
#include <vector>

#include "log.h"

namespace Orvane::Muxora::Gateway {

namespace fs = std::filesystem;

namespace {

// After a failure, a new file is tried so many seconds later.
constexpr double kAgainAfter = 10;

constexpr double kLargest = 1e12;

bool ParseNumber(const std::string& text, double& value, std::string& unit) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || !(value > 0) || value > kLargest) return false;
    unit.assign(end, text.data() + text.size());
    return true;
}

std::string FileName(int64_t ms) {
    const auto seconds = static_cast<std::time_t>(ms / 1000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[64];
    const size_t length = std::strftime(text, sizeof text, "%Y%m%dT%H%M%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%03dZ.mp4", static_cast<int>(ms % 1000));
    return text;
}

}  // namespace

bool ParseSpan(const std::string& text, double& seconds) {
    std::string unit;
    double value = 0;
    if (!ParseNumber(text, value, unit)) return false;
    const double factor = unit.empty() || unit == "s" ? 1
                          : unit == "m"               ? 60
                          : unit == "h"               ? 3600
                          : unit == "d"               ? 86400
                                                      : 0;
    if (factor == 0) return false;
    seconds = value * factor;
    return true;
}

bool ParseKeep(const std::string& text, RecordingSettings& settings) {
    if (ParseSpan(text, settings.keep_seconds)) return true;
    std::string unit;
    double value = 0;
    if (!ParseNumber(text, value, unit)) return false;
    const double factor = unit == "K" ? 1e3 : unit == "M" ? 1e6 : unit == "G" ? 1e9 : unit == "T" ? 1e12 : 0;
    if (factor == 0 || value * factor > 1e18) return false;
    settings.keep_bytes = static_cast<uint64_t>(value * factor);
    return true;
}

Recorder::Recorder(const StreamPtr& stream, const RecordingSettings& settings)
    : stream_(stream), settings_(settings), folder_((fs::path(settings.folder) / stream->Name()).string()) {
    std::error_code error;
    fs::create_directories(folder_, error);
    if (error) throw std::runtime_error(folder_ + ": " + error.message());
    thread_ = std::thread([this] { Run(); });
}

Recorder::~Recorder() {
    OnEnd();
    Wait();
}

void Recorder::Wait() {
    if (thread_.joinable()) thread_.join();
}

void Recorder::OnFrame(const FramePtr& frame) {
    auto taken = FrameQueue::Taken::kLost;
    {
        const std::lock_guard lock(mutex_);
        taken = frames_.Put(frame);
    }
    if (taken == FrameQueue::Taken::kLost) return;
    if (taken == FrameQueue::Taken::kWaitsBehind) {
        LogWarning("recording lost frames: the disk is too slow", {{"stream", stream_->Name()}});
    }
    changed_.notify_one();
}

void Recorder::OnEnd() {
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
    }
    changed_.notify_one();
}

void Recorder::Run() {
    for (;;) {
        FramePtr frame;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return ended_ || !frames_.Empty(); });
            if (frames_.Empty()) break;
            frame = frames_.Take();
        }
        Take(frame);
        const std::lock_guard lock(mutex_);
        frames_.Done(frame);
    }
    Finish();
}

void Recorder::Take(const FramePtr& frame) {
    const double now = frame->DtsSeconds();
    has_video_ = has_video_ || frame->IsVideo();
    const bool may_begin = has_video_ ? frame->IsVideo() && frame->IsKey() : true;
    try {
        if (file_ != nullptr && may_begin && now - began_ >= settings_.segment_seconds) Finish();
        if (file_ == nullptr) {
            if (!may_begin || now < next_try_) return;
            Begin(*frame);
            began_ = now;
        }
        file_->Give(*frame);
    } catch (const std::exception& error) {
        // The stream goes on without; the disk may have room again later.
        file_.reset();
        next_try_ = now + kAgainAfter;
        if (!std::exchange(told_, true)) {
            LogWarning("recording stopped", {{"stream", stream_->Name()}, {"why", error.what()}});
        }
        DeleteOld();
    }
}

void Recorder::Begin(const Frame& frame) {
    const std::string path = (fs::path(folder_) / FileName(frame.arrival_us / 1000)).string();
    file_ = std::make_unique<RecordingFile>(path, stream_->HeaderInfo(), frame);
    told_ = false;
    LogInfo("recording", {{"stream", stream_->Name()}, {"file", path}});
}

void Recorder::Finish() {
    if (file_ == nullptr) return;
    const std::unique_ptr<RecordingFile> file = std::exchange(file_, nullptr);
    try {
        file->Finish();
    } catch (const std::exception& error) {
        LogWarning("recording has no index", {{"stream", stream_->Name()}, {"why", error.what()}});
    }
    DeleteOld();
}

void Recorder::DeleteOld() const {
    if (settings_.keep_seconds <= 0 && settings_.keep_bytes == 0) return;
    std::vector<fs::directory_entry> files;
    std::error_code error;
    for (fs::directory_iterator at(folder_, error), end; !error && at != end; at.increment(error)) {
        std::error_code ignored;
        if (at->path().extension() == ".mp4" && at->is_regular_file(ignored)) files.push_back(*at);
    }
    // Their names are their times.
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.path() > b.path(); });
    uint64_t bytes = 0;
    const auto now = fs::file_time_type::clock::now();
    for (const auto& entry : files) {
        bytes += entry.file_size(error);
        const bool growing = file_ != nullptr && entry.path() == file_->Path();
        const double age = std::chrono::duration<double>(now - entry.last_write_time(error)).count();
        const bool old = settings_.keep_seconds > 0 && age > settings_.keep_seconds;
        const bool large = settings_.keep_bytes != 0 && bytes > settings_.keep_bytes;
        if (!growing && (old || large)) fs::remove(entry.path(), error);
    }
}

}  // namespace Orvane::Muxora::Gateway
