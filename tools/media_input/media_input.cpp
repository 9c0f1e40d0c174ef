#include "media_input/media_input.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>

#include "media_input/av_handles.h"
#include "media_input/media_source.h"

namespace Orvane::Muxora::Tools {

namespace {

constexpr size_t kTagSize = 4;
constexpr char kOvxTag[] = "ORVX";

bool IsUrl(const std::string& path) {
    return path.find("://") != std::string::npos;
}

// Says what is wrong with a path before libavformat does, which calls most of it invalid data.
void CheckPath(const std::string& path) {
    if (path == "-" || IsUrl(path)) return;
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found) throw InputError(path + ": there is no such file");
    if (error) throw InputError(path + ": cannot be opened: " + error.message());
    if (std::filesystem::is_directory(status)) throw InputError(path + ": is a directory; name a media file in it");
    if (std::filesystem::is_regular_file(status) && std::filesystem::file_size(path, error) == 0 && !error) {
        throw InputError(path + ": is empty");
    }
}

// The first bytes of the input, as far as they can be had; those of a pipe are then gone from it.
std::vector<uint8_t> Head(const std::string& path) {
    std::array<uint8_t, kTagSize> head{};
    size_t size = 0;
    if (path == "-") {
        while (size < head.size()) {
            const ssize_t got = read(STDIN_FILENO, head.data() + size, head.size() - size);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
            size += static_cast<size_t>(got);
        }
    } else if (!IsUrl(path) && std::filesystem::is_regular_file(path)) {
        std::ifstream file(path, std::ios::binary);
        file.read(reinterpret_cast<char*>(head.data()), head.size());
        size = static_cast<size_t>(file.gcount());
    }
    return {head.begin(), head.begin() + static_cast<std::ptrdiff_t>(size)};
}

bool HasOvxName(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return !IsUrl(path) && extension == ".ovx";
}

std::unique_ptr<MediaSource> Open(const std::string& path, int first_number, const InputOptions& options) {
    CheckPath(path);
    std::vector<uint8_t> head = Head(path);
    const bool ovx = head.size() == kTagSize && std::memcmp(head.data(), kOvxTag, kTagSize) == 0;
    if (path != "-") head.clear();
    return ovx || HasOvxName(path) ? OpenOvxSource(path, first_number, options, std::move(head))
                                   : OpenFileSource(path, first_number, options, std::move(head));
}

// Holds for any time that a damaged file states.
int64_t ToMs(int64_t us) {
    return us >= 0 ? us / 1000 + (us % 1000 + 500) / 1000 : us / 1000 - (500 - us % 1000) / 1000;
}

}  // namespace

struct MediaInput::Impl {
    struct Source {
        std::unique_ptr<MediaSource> media;
        std::optional<int64_t> base_us;  // of its first frame
    };
    std::vector<Source> sources;
    InputOptions options;
    StreamQueue* video = nullptr;
    StreamQueue* audio = nullptr;

    StreamQueue* ChooseFrom(uint32_t type, int choice) {
        if (choice == StreamChoice::kNone) return nullptr;
        for (const Source& source : sources) {
            if (StreamQueue* found = source.media->Choose(type, choice)) return found;
        }
        if (choice >= 0) {
            int count = 0;
            for (const Source& source : sources)
                count += source.media->StreamCount();
            throw InputError("there is no stream " + std::to_string(choice) + " in the inputs; they have " +
                             (count == 1 ? "stream 0 alone" : "streams 0 to " + std::to_string(count - 1)));
        }
        return nullptr;
    }

    static void Fill(Source& source) {
        source.media->Fill();
        if (source.base_us) return;
        for (const auto& queue : source.media->Chosen()) {
            if (queue->ready.empty()) continue;
            const int64_t first = queue->ready.front().time_us;
            source.base_us = std::min(source.base_us.value_or(first), first);
        }
    }

    // Exact times begin where the input's first frame does; what lies ahead of an input's own 0 stays ahead of it, as
    // the priming of sound does.
    static void StateTimes(const Source& source, const StreamQueue& queue, const StreamQueue::Timed& timed,
                           MediaFrame& frame) {
        if (queue.TimeScale() == 0) return;
        const int64_t base = std::max<int64_t>(source.base_us.value_or(0), 0);
        const auto ticks = [&](int64_t us) {
            return av_rescale_q_rnd(us, {1, 1000000}, {1, static_cast<int>(queue.TimeScale())}, AV_ROUND_NEAR_INF);
        };
        frame.time_scale = queue.TimeScale();
        frame.dts = ticks(timed.dts_us - base);
        frame.pts = ticks(timed.pts_us - base);
        frame.duration = ticks(timed.duration_us);
    }
};

MediaInput::MediaInput(const std::vector<std::string>& paths, const InputOptions& options)
    : impl_(std::make_unique<Impl>()) {
    av_log_set_level(AV_LOG_QUIET);
    impl_->options = options;
    int number = 0;
    for (const std::string& path : paths) {
        impl_->sources.push_back({Open(path, number, options), std::nullopt});
        number += impl_->sources.back().media->StreamCount();
    }
    if (options.video == StreamChoice::kNone && options.audio == StreamChoice::kNone) {
        throw InputError("there is neither a video nor an audio stream to take: both are left out by options");
    }
    impl_->video = impl_->ChooseFrom(MX_FRAME_VIDEO, options.video);
    impl_->audio = impl_->ChooseFrom(MX_FRAME_AUDIO, options.audio);
    if (impl_->video == nullptr && impl_->audio == nullptr) {
        throw InputError((paths.empty() ? std::string("no input") : paths.front()) +
                         ": there is neither a video nor an audio stream to take");
    }
    for (auto& source : impl_->sources) {
        source.media->Begin();
        Impl::Fill(source);
    }
}

MediaInput::~MediaInput() = default;

const MediaStream* MediaInput::Video() const {
    return impl_->video != nullptr ? &impl_->video->About() : nullptr;
}

const MediaStream* MediaInput::Audio() const {
    return impl_->audio != nullptr ? &impl_->audio->About() : nullptr;
}

bool MediaInput::Next(MediaFrame& frame) {
    StreamQueue* next = nullptr;
    const Impl::Source* from = nullptr;
    int64_t next_ms = 0;
    for (auto& source : impl_->sources) {
        Impl::Fill(source);
        for (const auto& queue : source.media->Chosen()) {
            if (queue->ready.empty()) continue;
            const int64_t ms = ToMs(queue->ready.front().time_us - source.base_us.value_or(0));
            // At the same time video goes first: nothing is written before the first key frame.
            const bool wins = next == nullptr || ms < next_ms || (ms == next_ms && queue.get() == impl_->video);
            if (!wins) continue;
            next = queue.get();
            from = &source;
            next_ms = ms;
        }
    }
    if (next == nullptr) return false;
    if (impl_->options.duration_ms > 0 && next_ms >= impl_->options.duration_ms) return false;
    StreamQueue::Timed& timed = next->ready.front();
    frame = std::move(timed.frame);
    next->ready_bytes -= frame.bytes.size();
    frame.time_ms = std::max(impl_->options.start_ms + next_ms, next->last_ms + 1);
    frame.pts_ms = impl_->options.start_ms + ToMs(timed.pts_us - from->base_us.value_or(0));
    Impl::StateTimes(*from, *next, timed, frame);
    next->ready.pop_front();
    next->last_ms = frame.time_ms;
    return true;
}

int64_t MediaInput::DurationMs() const {
    int64_t longest = 0;
    if (const MediaStream* video = Video()) longest = std::max(longest, video->duration_ms);
    if (const MediaStream* audio = Audio()) longest = std::max(longest, audio->duration_ms);
    return impl_->options.duration_ms > 0 && longest > 0 ? std::min(longest, impl_->options.duration_ms) : longest;
}

uint64_t MediaInput::DamagedFrames() const {
    uint64_t count = 0;
    for (const auto& source : impl_->sources) {
        for (const auto& queue : source.media->Chosen())
            count += queue->damaged;
    }
    return count;
}

std::vector<std::string> MediaInput::Notes() const {
    std::vector<std::string> notes;
    for (const auto& source : impl_->sources) {
        for (std::string& note : source.media->Notes())
            notes.push_back(std::move(note));
        for (const auto& queue : source.media->Chosen())
            notes.insert(notes.end(), queue->notes.begin(), queue->notes.end());
    }
    return notes;
}

std::vector<MediaFrame> ReadAllFrames(const std::vector<std::string>& paths, const InputOptions& options) {
    MediaInput input(paths, options);
    std::vector<MediaFrame> frames;
    MediaFrame frame;
    while (input.Next(frame))
        frames.push_back(frame);  // a copy, which outlives the input
    return frames;
}

}  // namespace Orvane::Muxora::Tools
