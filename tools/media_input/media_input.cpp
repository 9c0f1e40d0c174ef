#include "media_input/media_input.h"

#include <algorithm>
#include <filesystem>
#include <optional>

#include "media_input/av_handles.h"
#include "media_input/stream_reader.h"

namespace Orvane::Muxora::Tools {

namespace {

// How far one stream may run ahead while the other has nothing to give.
constexpr size_t kReadAheadBytes = 32u << 20;

std::string AvText(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

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

class FileSource {
  public:
    FileSource(const std::string& path, int first_number, const InputOptions& options)
        : path_(path == "-" ? "standard input" : path), first_number_(first_number) {
        CheckPath(path);
        AVDictionary* settings = nullptr;
        // Only raw video has this setting: it has no clock of its own.
        if (options.frame_rate != 0) av_dict_set_int(&settings, "framerate", options.frame_rate, 0);
        AVFormatContext* context = nullptr;
        const std::string url = path == "-" ? "pipe:0" : IsUrl(path) ? path : "file:" + path;
        const int opened = avformat_open_input(&context, url.c_str(), nullptr, &settings);
        av_dict_free(&settings);
        if (opened == AVERROR_INVALIDDATA) throw InputError(path_ + ": is no media file that can be read");
        if (opened < 0) throw InputError(path_ + ": cannot be opened: " + AvText(opened));
        format_.reset(context);
        const int found = avformat_find_stream_info(format_.get(), nullptr);
        if (found < 0) throw InputError(path_ + ": its streams cannot be read: " + AvText(found));
    }

    int StreamCount() const { return static_cast<int>(format_->nb_streams); }
    const std::string& Path() const { return path_; }

    // Does the choice fall on a stream of this file?
    const AVStream* Find(AVMediaType type, int choice) const {
        for (unsigned i = 0; i < format_->nb_streams; ++i) {
            const AVStream* stream = format_->streams[i];
            const int number = first_number_ + static_cast<int>(i);
            if (choice >= 0 && number != choice) continue;
            if (stream->codecpar->codec_type != type) {
                if (choice >= 0) {
                    throw InputError(path_ + ": stream " + std::to_string(choice) + " is no " +
                                     av_get_media_type_string(type) + " stream");
                }
                continue;
            }
            // A cover picture is not a film.
            if (choice < 0 && (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) continue;
            return stream;
        }
        return nullptr;
    }

    StreamReader& Choose(const AVStream& stream, const InputOptions& options) {
        MediaStream about = DescribeStream(stream, path_, first_number_ + stream.index, options.frame_rate);
        if (about.duration_ms == 0 && format_->duration > 0)
            about.duration_ms = format_->duration / (AV_TIME_BASE / 1000);
        return *readers_.emplace_back(std::make_unique<StreamReader>(stream, std::move(about), options));
    }

    void DropOthers() {
        for (unsigned i = 0; i < format_->nb_streams; ++i) {
            const bool chosen = std::any_of(readers_.begin(), readers_.end(),
                                            [i](const auto& reader) { return reader->Index() == static_cast<int>(i); });
            if (!chosen) format_->streams[i]->discard = AVDISCARD_ALL;
        }
    }

    const std::vector<std::unique_ptr<StreamReader>>& Readers() const { return readers_; }
    bool Ended() const { return ended_; }

    // Reads until each chosen stream has a frame, as far as that goes within bounds.
    void Fill() {
        while (!ended_) {
            bool waiting = false;
            size_t held = 0;
            for (const auto& reader : readers_) {
                waiting = waiting || reader->ready.empty();
                held += reader->ready_bytes;
            }
            if (!waiting || held > kReadAheadBytes) break;
            ReadPacket();
        }
        if (!base_us_) {
            for (const auto& reader : readers_) {
                if (reader->ready.empty()) continue;
                const int64_t first = reader->ready.front().time_us;
                base_us_ = std::min(base_us_.value_or(first), first);
            }
        }
    }

    // Time on the inputs' common clock, which starts at 0.
    int64_t Ms(int64_t time_us) const {
        const int64_t since = time_us - base_us_.value_or(0);
        return since >= 0 ? (since + 500) / 1000 : -((-since + 500) / 1000);
    }

  private:
    void ReadPacket() {
        const int result = av_read_frame(format_.get(), packet_.get());
        if (result == AVERROR(EAGAIN)) return;
        if (result < 0) {
            // A cut file ends here: what came before it is good.
            ended_ = true;
            for (const auto& reader : readers_)
                reader->Take(nullptr);
            return;
        }
        for (const auto& reader : readers_) {
            if (reader->Index() == packet_->stream_index) reader->Take(packet_.get());
        }
        av_packet_unref(packet_.get());
    }

    std::string path_;
    int first_number_;
    AvPtr<AVFormatContext> format_;
    AvPtr<AVPacket> packet_{av_packet_alloc()};
    std::vector<std::unique_ptr<StreamReader>> readers_;
    std::optional<int64_t> base_us_;
    bool ended_ = false;
};

}  // namespace

struct MediaInput::Impl {
    std::vector<std::unique_ptr<FileSource>> files;
    InputOptions options;
    StreamReader* video = nullptr;
    StreamReader* audio = nullptr;

    StreamReader* ChooseFrom(AVMediaType type, int choice) {
        if (choice == StreamChoice::kNone) return nullptr;
        for (const auto& file : files) {
            if (const AVStream* stream = file->Find(type, choice)) return &file->Choose(*stream, options);
        }
        if (choice >= 0) throw InputError("there is no stream " + std::to_string(choice) + " in the inputs");
        return nullptr;
    }
};

MediaInput::MediaInput(const std::vector<std::string>& paths, const InputOptions& options)
    : impl_(std::make_unique<Impl>()) {
    av_log_set_level(AV_LOG_QUIET);
    impl_->options = options;
    int number = 0;
    for (const std::string& path : paths) {
        impl_->files.push_back(std::make_unique<FileSource>(path, number, options));
        number += impl_->files.back()->StreamCount();
    }
    impl_->video = impl_->ChooseFrom(AVMEDIA_TYPE_VIDEO, options.video);
    impl_->audio = impl_->ChooseFrom(AVMEDIA_TYPE_AUDIO, options.audio);
    if (impl_->video == nullptr && impl_->audio == nullptr) {
        throw InputError((paths.empty() ? std::string("no input") : paths.front()) +
                         ": there is neither a video nor an audio stream to take");
    }
    for (const auto& file : impl_->files) {
        file->DropOthers();
        file->Fill();
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
    StreamReader* next = nullptr;
    int64_t next_ms = 0;
    int64_t next_pts = 0;
    for (const auto& file : impl_->files) {
        file->Fill();
        for (const auto& reader : file->Readers()) {
            if (reader->ready.empty()) continue;
            const int64_t ms = file->Ms(reader->ready.front().time_us);
            // At the same time video goes first: nothing is written before the first key frame.
            const bool wins = next == nullptr || ms < next_ms || (ms == next_ms && reader.get() == impl_->video);
            if (!wins) continue;
            next = reader.get();
            next_ms = ms;
            next_pts = file->Ms(reader->ready.front().pts_us);
        }
    }
    if (next == nullptr) return false;
    if (impl_->options.duration_ms > 0 && next_ms >= impl_->options.duration_ms) return false;
    frame = std::move(next->ready.front().frame);
    next->ready_bytes -= frame.bytes.size();
    next->ready.pop_front();
    frame.time_ms = std::max(impl_->options.start_ms + next_ms, next->last_ms + 1);
    frame.pts_ms = impl_->options.start_ms + next_pts;
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
    for (const auto& file : impl_->files) {
        for (const auto& reader : file->Readers())
            count += reader->damaged;
    }
    return count;
}

std::vector<MediaFrame> ReadAllFrames(const std::vector<std::string>& paths, const InputOptions& options) {
    MediaInput input(paths, options);
    std::vector<MediaFrame> frames;
    MediaFrame frame;
    while (input.Next(frame))
        frames.push_back(std::move(frame));
    return frames;
}

}  // namespace Orvane::Muxora::Tools
