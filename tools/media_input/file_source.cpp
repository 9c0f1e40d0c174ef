// Files, pipes and addresses that libavformat reads.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "media_input/av_handles.h"
#include "media_input/elementary.h"
#include "media_input/lent_samples.h"
#include "media_input/media_source.h"
#include "media_input/raw_video.h"
#include "media_input/stream_reader.h"

namespace Orvane::Muxora::Tools {

namespace {

constexpr int64_t kProbeBytes = int64_t{64} << 20;

std::string AvText(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

bool IsUrl(const std::string& path) {
    return path.find("://") != std::string::npos;
}

// The standard input, with what was read of it before.
class PipeReader {
  public:
    explicit PipeReader(std::vector<uint8_t> head) : head_(std::move(head)) {
        constexpr int kBuffer = 1 << 16;
        auto* buffer = static_cast<unsigned char*>(av_malloc(kBuffer));
        context_ = buffer != nullptr ? avio_alloc_context(buffer, kBuffer, 0, this, Read, nullptr, nullptr) : nullptr;
        if (context_ != nullptr) return;
        av_free(buffer);
        throw InputError("standard input: needs more memory");
    }
    ~PipeReader() {
        av_freep(&context_->buffer);
        avio_context_free(&context_);
    }
    PipeReader(const PipeReader&) = delete;
    PipeReader& operator=(const PipeReader&) = delete;

    AVIOContext* Context() { return context_; }
    // The first kilobytes that came, for a look at what they are.
    const std::vector<uint8_t>& Seen() const { return seen_; }

  private:
    static int Read(void* opaque, uint8_t* buffer, int size) {
        auto* self = static_cast<PipeReader*>(opaque);
        int count = 0;
        if (self->given_ < self->head_.size()) {
            count = static_cast<int>(std::min<size_t>(self->head_.size() - self->given_, static_cast<size_t>(size)));
            std::memcpy(buffer, self->head_.data() + self->given_, static_cast<size_t>(count));
            self->given_ += static_cast<size_t>(count);
        } else {
            ssize_t got = 0;
            do {
                got = read(STDIN_FILENO, buffer, static_cast<size_t>(size));
            } while (got < 0 && errno == EINTR);
            if (got < 0) return AVERROR(errno);
            if (got == 0) return AVERROR_EOF;
            count = static_cast<int>(got);
        }
        constexpr size_t kLook = 4096;
        if (self->seen_.size() < kLook) self->seen_.insert(self->seen_.end(), buffer, buffer + count);
        return count;
    }

    std::vector<uint8_t> head_;
    size_t given_ = 0;
    std::vector<uint8_t> seen_;
    AVIOContext* context_ = nullptr;
};

// ISO/IEC 14496-12 4.2: a box of a type that only files of that family begin with.
bool BeginsAsMp4(const uint8_t* bytes, size_t size) {
    static constexpr std::string_view kTypes[] = {"ftyp", "mdat", "wide", "free", "skip"};
    if (size < 8) return false;
    const std::string_view type(reinterpret_cast<const char*>(bytes) + 4, 4);
    return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

// Why libavformat calls an input invalid, as far as its beginning tells.
std::string Unreadable(const std::string& path, const PipeReader* pipe) {
    if (pipe != nullptr) {
        if (BeginsAsMp4(pipe->Seen().data(), pipe->Seen().size())) {
            return ": is an MP4 or MOV file whose index (moov) is missing or stands last, behind the media; from a "
                   "pipe "
                   "it has to stand in front: give the file by name, or move the index with "
                   "'ffmpeg -i IN -c copy -movflags +faststart OUT'";
        }
        return ": is no media file that can be read";
    }
    // To open a named pipe once more is to wait for a writer who does not come.
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) return ": is no media file that can be read";
    std::array<char, 8> head{};
    std::ifstream(path, std::ios::binary).read(head.data(), head.size());
    if (BeginsAsMp4(reinterpret_cast<const uint8_t*>(head.data()), head.size())) {
        return ": is an MP4 or MOV file without its index (moov), as a recording that was cut off; "
               "'muxora repair' completes it if a snapshot was kept";
    }
    return ": is no media file that can be read";
}

bool IsMedia(const AVStream& stream) {
    return stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO || stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
}

// Files of the MP4 family list their frames, each with its times, unless they are made of fragments. libavformat would
// parse H.264 and H.265 all the same, as StreamReader does.
bool ListsFrames(const AVFormatContext& format) {
    if (std::string_view(format.iformat->name).rfind("mov,", 0) != 0) return false;
    return std::all_of(format.streams, format.streams + format.nb_streams, [](const AVStream* stream) {
        const AVCodecID codec = stream->codecpar->codec_id;
        const bool known = codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC || codec == AV_CODEC_ID_AAC;
        return !IsMedia(*stream) || (known && stream->nb_frames > 0);
    });
}

// Does the head of such a file state all that is asked of its streams? libavformat would decode pictures to learn more.
bool StatesAll(const AVFormatContext& format) {
    // Below, frames of AAC may hold more than their configuration says (implicit SBR and parametric stereo).
    constexpr uint32_t kSurelyPlainAac = 32000;
    return std::all_of(format.streams, format.streams + format.nb_streams, [](const AVStream* stream) {
        if (!IsMedia(*stream)) return true;
        const AVCodecParameters& par = *stream->codecpar;
        if (par.extradata_size <= 0 || stream->duration <= 0) return false;
        if (par.codec_type == AVMEDIA_TYPE_AUDIO) {
            std::string why;
            const auto config = AdtsFromSpecificConfig({par.extradata, static_cast<size_t>(par.extradata_size)}, why);
            return config && !config->extended && config->Rate() >= kSurelyPlainAac &&
                   par.sample_rate == static_cast<int>(config->Rate()) && par.ch_layout.nb_channels > 0;
        }
        return par.width > 0 && par.height > 0 && stream->avg_frame_rate.num > 0;
    });
}

// Is it worth while to map the file? The first video stream tells.
bool HasLargePictures(const AVFormatContext& format) {
    const int64_t size = avio_size(format.pb);
    for (unsigned i = 0; i < format.nb_streams; ++i) {
        const AVStream& stream = *format.streams[i];
        if (stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO) continue;
        return stream.nb_frames > 0 && size / stream.nb_frames >= LentSamples::kLarge;
    }
    return false;
}

class FileSource : public MediaSource {
  public:
    FileSource(const std::string& path, int first_number, const InputOptions& options, std::vector<uint8_t> head)
        : path_(path == "-" ? "standard input" : path), first_number_(first_number), options_(options) {
        if (path == "-") pipe_ = std::make_unique<PipeReader>(std::move(head));
        const std::string url = path == "-" ? "" : IsUrl(path) ? path : "file:" + path;
        OpenFormat(url, pipe_ ? pipe_->Context() : nullptr);
        const bool lists = ListsFrames(*format_);
        if (lists && options.lend_frames && !pipe_ && !IsUrl(path) && HasLargePictures(*format_)) {
            lent_ = LentSamples::Of(path);
            if (lent_) OpenFormat(url, lent_->Context());
        }
        if (lists) {
            format_->flags |= AVFMT_FLAG_NOPARSE;
            if (StatesAll(*format_)) return;
        }
        // The 5 MB of its own are less than a picture of some cameras: the sound behind it would stay unknown.
        format_->probesize = kProbeBytes;
        const int found = avformat_find_stream_info(format_.get(), nullptr);
        if (found < 0) throw InputError(path_ + ": its streams cannot be read: " + AvText(found));
    }

    int StreamCount() const override { return static_cast<int>(format_->nb_streams); }

    StreamQueue* Choose(uint32_t type, int choice) override {
        const AVStream* stream = Find(type == MX_FRAME_VIDEO ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO, choice);
        if (stream == nullptr) return nullptr;
        MediaStream about = DescribeStream(*stream, path_, first_number_ + stream->index, options_.frame_rate);
        if (about.duration_ms == 0 && format_->duration > 0) {
            about.duration_ms = format_->duration / (AV_TIME_BASE / 1000);
        }
        if (RawVideo::Takes(*format_, *stream)) {
            // A file that can be read twice is read as it lies there.
            const bool regular = !pipe_ && std::filesystem::is_regular_file(path_);
            auto raw = std::make_unique<RawVideo>(*stream, std::move(about), options_.frame_rate, regular ? path_ : "");
            raw_ = raw.get();
            reads_file_ = regular;
            chosen_.push_back(std::move(raw));
        } else {
            auto reader = std::make_unique<StreamReader>(*stream, std::move(about), options_);
            readers_.push_back(reader.get());
            chosen_.push_back(std::move(reader));
        }
        return chosen_.back().get();
    }

    void Begin() override {
        CountMissing();
        for (unsigned i = 0; i < format_->nb_streams; ++i) {
            if (!IsChosen(static_cast<int>(i))) format_->streams[i]->discard = AVDISCARD_ALL;
        }
    }

    const std::vector<std::unique_ptr<StreamQueue>>& Chosen() const override { return chosen_; }

    std::vector<std::string> Notes() const override {
        std::string left_out;
        for (unsigned i = 0; i < format_->nb_streams; ++i) {
            if (IsChosen(static_cast<int>(i))) continue;
            const AVStream& stream = *format_->streams[i];
            // What the user left out by an option is no news.
            if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO && options_.video == StreamChoice::kNone) continue;
            if (stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO && options_.audio == StreamChoice::kNone) continue;
            left_out += (left_out.empty() ? "" : ", ") + std::to_string(first_number_ + static_cast<int>(i)) + " (" +
                        KindOf(stream) + ")";
        }
        std::vector<std::string> notes;
        if (!left_out.empty()) {
            notes.push_back("left out of " + path_ + ": stream " + left_out +
                            "; one video and one audio stream go in, chosen with --video N and --audio N");
        }
        if (missing_ != 0) {
            notes.push_back(path_ + " is cut off: " + std::to_string(missing_) + " of the frames that it lists lie " +
                            "behind its end");
        }
        return notes;
    }

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

    void Fill() override {
        // What was given out before has been used by now.
        if (lent_) lent_->CheckWhole();
        if (reads_file_) {
            raw_->Fill();
            return;
        }
        while (!ended_) {
            bool waiting = false;
            size_t held = 0;
            for (const auto& reader : chosen_) {
                waiting = waiting || reader->ready.empty();
                held += reader->ready_bytes;
            }
            if (!waiting || held > kReadAheadBytes) break;
            ReadPacket();
        }
    }

  private:
    void OpenFormat(const std::string& url, AVIOContext* reader) {
        AVFormatContext* context = packet_ ? avformat_alloc_context() : nullptr;
        if (context == nullptr) throw InputError(path_ + ": needs more memory");
        context->pb = reader;
        AVDictionary* settings = nullptr;
        // Only raw video has this setting: it has no clock of its own.
        if (options_.frame_rate != 0) av_dict_set_int(&settings, "framerate", options_.frame_rate, 0);
        const int opened = avformat_open_input(&context, url.c_str(), nullptr, &settings);
        av_dict_free(&settings);
        if (opened == AVERROR_INVALIDDATA) throw InputError(path_ + Unreadable(path_, pipe_.get()));
        if (opened < 0) throw InputError(path_ + ": cannot be opened: " + AvText(opened));
        format_.reset(context);
    }

    // An index at the beginning of a file lists also what was cut off at its end.
    void CountMissing() {
        const bool lists = std::string_view(format_->iformat->name).rfind("mov,", 0) == 0;
        const int64_t end = lists && !pipe_ && format_->pb != nullptr ? avio_size(format_->pb) : 0;
        if (end <= 0) return;
        for (const StreamReader* reader : readers_) {
            AVStream* stream = format_->streams[reader->Index()];
            for (int i = avformat_index_get_entries_count(stream); i-- > 0;) {
                const AVIndexEntry* entry = avformat_index_get_entry(stream, i);
                if (entry->pos + entry->size > end) ++missing_;
            }
        }
    }

    // A raw stream is the only one of its file.
    bool IsChosen(int index) const { return raw_ != nullptr || ReaderOf(index) != nullptr; }

    StreamReader* ReaderOf(int index) const {
        for (StreamReader* reader : readers_) {
            if (reader->Index() == index) return reader;
        }
        return nullptr;
    }

    // The video stream.
    int Lent() const {
        for (const StreamReader* reader : readers_) {
            if (reader->About().type == MX_FRAME_VIDEO) return reader->Index();
        }
        return -1;
    }

    static std::string KindOf(const AVStream& stream) {
        const char* type = av_get_media_type_string(stream.codecpar->codec_type);
        std::string text = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0 ? "cover picture"
                           : type != nullptr                                       ? type
                                                                                   : "data";
        text += std::string(" ") + avcodec_get_name(stream.codecpar->codec_id);
        const AVDictionaryEntry* language = av_dict_get(stream.metadata, "language", nullptr, 0);
        if (language != nullptr && std::string_view(language->value) != "und")
            text += std::string(" ") + language->value;
        return text;
    }

    void ReadPacket() {
        const int result =
            lent_ ? lent_->Read(*format_, Lent(), *packet_) : av_read_frame(format_.get(), packet_.get());
        if (result == AVERROR(EAGAIN)) return;
        if (result < 0) {
            // A cut file ends here: what came before it is good.
            ended_ = true;
            // The index came last, when the media had gone by.
            if (pipe_ && !read_) throw InputError(path_ + Unreadable("-", pipe_.get()));
            for (StreamReader* reader : readers_)
                reader->Take(nullptr);
            if (raw_ != nullptr) raw_->End();
            return;
        }
        read_ = true;
        if (raw_ != nullptr) raw_->Put({packet_->data, static_cast<size_t>(packet_->size)});
        if (StreamReader* reader = ReaderOf(packet_->stream_index)) reader->Take(packet_.get());
        av_packet_unref(packet_.get());
    }

    std::string path_;
    int first_number_;
    InputOptions options_;
    std::unique_ptr<PipeReader> pipe_;
    std::unique_ptr<LentSamples> lent_;
    AvPtr<AVFormatContext> format_;
    AvPtr<AVPacket> packet_{av_packet_alloc()};
    std::vector<std::unique_ptr<StreamQueue>> chosen_;
    std::vector<StreamReader*> readers_;  // of the chosen ones, those of a container
    RawVideo* raw_ = nullptr;             // the other kind
    bool reads_file_ = false;             // by itself
    uint64_t missing_ = 0;                // frames behind the file's end
    bool read_ = false;                   // a packet at least
    bool ended_ = false;
};

}  // namespace

std::unique_ptr<MediaSource> OpenFileSource(const std::string& path, int first_number, const InputOptions& options,
                                            std::vector<uint8_t> head) {
    return std::make_unique<FileSource>(path, first_number, options, std::move(head));
}

}  // namespace Orvane::Muxora::Tools
