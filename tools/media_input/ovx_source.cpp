// OVX files, encrypted and damaged ones among them, through the reader of the format.
#include <algorithm>
#include <array>
#include <optional>
#include <queue>

#include "media_input/elementary.h"
#include "media_input/file_bytes.h"
#include "media_input/media_source.h"
#include "media_input/ovx_frame.h"
#include "ovx_reader/decryptor.h"
#include "ovx_reader/reader.h"
#include "ovx_reader/summary.h"

namespace Orvane::Muxora::Tools {

namespace {

using OvxReader::Decryptor;
using OvxReader::Piece;
using OvxReader::Reader;
using OvxReader::Summary;

constexpr uint32_t kDefaultFrameRate = 25;
// Pictures held back until their decoding times are sure: no codec reorders further.
constexpr size_t kReorderDepth = 17;
// Units that are looked through for a description of the streams.
constexpr int kLookAhead = 5000;

// Does a frame begin as its codec has it? Samples tell nothing.
bool BeginsRight(uint32_t codec, const std::vector<uint8_t>& frame) {
    const auto byte = [&](size_t at) { return at < frame.size() ? frame[at] : uint8_t{0}; };
    switch (codec) {
        case MX_VIDEO_H264:
        case MX_VIDEO_H265:
        case MX_VIDEO_MPEG4:
        case MX_VIDEO_MPEG2:
            return byte(0) == 0 && byte(1) == 0 && (byte(2) == 1 || (byte(2) == 0 && byte(3) == 1));
        case MX_VIDEO_MJPEG:
            return byte(0) == 0xFF && byte(1) == 0xD8;
        case MX_AUDIO_AAC:
        case MX_AUDIO_MPEG:
            return byte(0) == 0xFF && (byte(1) & 0xE0) == 0xE0;
        default:
            return true;
    }
}

// Units state 16 bits of their milliseconds and the calendar second; both together give a time that goes on.
class UnitClock {
  public:
    int64_t Us(const OvxReader::Head& head) {
        if (!last_ms_) {
            last_ms_ = head.timestamp;
            return *last_ms_ * 1000;
        }
        const auto step =
            static_cast<int16_t>(static_cast<uint16_t>(head.timestamp - static_cast<uint16_t>(*last_ms_)));
        *last_ms_ += step;
        return *last_ms_ * 1000;
    }

  private:
    std::optional<int64_t> last_ms_;
};

class OvxQueue : public StreamQueue {
  public:
    explicit OvxQueue(MediaStream about) : StreamQueue(std::move(about), 1000) {}

    void PushSound(MediaFrame frame, int64_t us) {
        ready_bytes += frame.bytes.size();
        ready.push_back({us, us, std::move(frame), us, 0});
    }

    // Pictures come in the order of decoding and state when they are shown: the n-th decoding time is the n-th time of
    // all, moved ahead until none is behind its picture's.
    void PushPicture(MediaFrame frame, int64_t us) {
        held_.push_back({0, us, std::move(frame), 0, 0});
        times_.push(us);
        if (held_.size() > kReorderDepth) Release();
    }

    void Flush() {
        while (!held_.empty())
            Release();
    }

  private:
    void Release() {
        if (!delay_us_) delay_us_ = Delay();
        Timed timed = std::move(held_.front());
        held_.pop_front();
        timed.time_us = times_.top();
        timed.dts_us = times_.top() - *delay_us_;
        times_.pop();
        ready_bytes += timed.frame.bytes.size();
        ready.push_back(std::move(timed));
    }

    int64_t Delay() const {
        std::vector<int64_t> sorted;
        for (const Timed& timed : held_)
            sorted.push_back(timed.pts_us);
        std::sort(sorted.begin(), sorted.end());
        int64_t delay = 0;
        for (size_t i = 0; i < held_.size(); ++i)
            delay = std::max(delay, sorted[i] - held_[i].pts_us);
        return delay;
    }

    std::deque<Timed> held_;
    std::priority_queue<int64_t, std::vector<int64_t>, std::greater<>> times_;
    std::optional<int64_t> delay_us_;
};

class OvxSource : public MediaSource {
  public:
    OvxSource(const std::string& path, int first_number, const InputOptions& options, std::vector<uint8_t> head)
        : path_(path == "-" ? "standard input" : path),
          options_(options),
          file_(path, std::move(head)),
          reader_(file_.All()) {
        LookAhead(first_number);
    }

    int StreamCount() const override { return static_cast<int>(streams_.size()); }

    StreamQueue* Choose(uint32_t type, int choice) override {
        for (const MediaStream& stream : streams_) {
            if (choice >= 0 && stream.number != choice) continue;
            if (stream.type != type) {
                if (choice < 0) continue;
                throw InputError(path_ + ": stream " + std::to_string(choice) + " is no " +
                                 (type == MX_FRAME_VIDEO ? "video" : "audio") + " stream");
            }
            if (stream.codec == 0) throw InputError(path_ + ": holds " + stream.codec_name + ", which no format takes");
            chosen_.push_back(std::make_unique<OvxQueue>(stream));
            return chosen_.back().get();
        }
        return nullptr;
    }

    void Begin() override {}

    void Fill() override {
        while (!ended_) {
            bool waiting = false;
            size_t held = 0;
            for (const auto& queue : chosen_) {
                waiting = waiting || queue->ready.empty();
                held += queue->ready_bytes;
            }
            if (!waiting || held > kReadAheadBytes) break;
            if (const auto piece = reader_.Next()) {
                Take(*piece);
                continue;
            }
            file_.CheckWhole(path_);
            ended_ = true;
            for (const auto& queue : chosen_)
                static_cast<OvxQueue*>(queue.get())->Flush();
        }
    }

    const std::vector<std::unique_ptr<StreamQueue>>& Chosen() const override { return chosen_; }

    std::vector<std::string> Notes() const override {
        std::vector<std::string> notes;
        if (summary_.Damaged()) {
            notes.push_back(path_ + " is damaged: " + summary_.DamageText() +
                            " skipped where not known to be right (muxora inspect tells more)");
        }
        if (other_channels_ != 0) {
            notes.push_back("left out of " + path_ + ": " + std::to_string(other_channels_) +
                            " frames of further channels");
        }
        if (begins_late_ != 0) {
            notes.push_back(std::to_string(begins_late_) + " pictures ahead of the first key frame were left out");
        }
        return notes;
    }

  private:
    void LookAhead(int first_number) {
        Reader reader(file_.All());
        std::optional<MediaStream> video;
        std::optional<MediaStream> audio;
        bool units = false;
        for (int i = 0; i < kLookAhead && !(video && audio); ++i) {
            const auto piece = reader.Next();
            if (!piece) break;
            if (!piece->Usable()) continue;
            units = true;
            if (piece->head.IsAudio()) {
                if (!audio) audio = DescribeSound(*piece);
            } else if (const auto picture = PictureOf(*piece); !video && picture) {
                video = DescribePicture(*picture);
            }
        }
        if (!units) throw InputError(path_ + ": has no intact OVX unit in it");
        for (auto* stream : {&video, &audio}) {
            if (!*stream) continue;
            (*stream)->path = path_;
            (*stream)->number = first_number + static_cast<int>(streams_.size());
            streams_.push_back(**stream);
        }
    }

    MediaStream DescribePicture(const OvxPicture& picture) const {
        MediaStream about;
        about.type = MX_FRAME_VIDEO;
        about.codec = picture.codec;
        about.codec_name = OvxReader::VideoCodec(picture.codec_byte).text;
        about.frame_rate = options_.frame_rate != 0 ? options_.frame_rate : picture.frame_rate;
        if (about.frame_rate == 0) about.frame_rate = kDefaultFrameRate;
        about.exact_rate = about.frame_rate;
        about.width = picture.width;
        about.height = picture.height;
        return about;
    }

    MediaStream DescribeSound(const Piece& piece) {
        const OvxSound sound = SoundOf(piece);
        MediaStream about;
        about.type = MX_FRAME_AUDIO;
        about.codec = sound.codec;
        about.codec_name = OvxReader::AudioCodec(sound.codec_byte).text;
        about.channels = sound.channels;
        about.bits_per_sample = sound.bits_per_sample;
        about.samples_per_sec = sound.samples_per_sec;
        if (about.codec == MX_AUDIO_AAC) {
            // The list of the format lacks rates that ADTS has.
            const std::vector<uint8_t> frame = FrameOf(piece);
            AdtsConfig config;
            if (AdtsPayload(frame, config) && config.Rate() != 0) about.samples_per_sec = config.Rate();
        }
        if (about.samples_per_sec == 0) throw InputError(path_ + ": does not say the sample rate of its sound");
        return about;
    }

    std::vector<uint8_t> FrameOf(const Piece& piece) {
        std::vector<uint8_t> bytes(piece.frame.begin(), piece.frame.end());
        if (!piece.extension.Find(OvxReader::kEncrypt)) return bytes;
        if (!decryptor_) {
            const std::vector<uint8_t> key = options_.ovx_key ? options_.ovx_key() : std::vector<uint8_t>{};
            if (key.empty())
                throw InputError(path_ + ": is encrypted; give its key with --key, --key-file or MUXORA_KEY");
            decryptor_ = Decryptor::Make(key);
            if (!decryptor_) throw InputError(path_ + ": the key must have 16, 24 or 32 bytes");
        }
        decryptor_->Decrypt(piece.extension, bytes);
        return bytes;
    }

    // The first decrypted frame of each stream tells a wrong key, as far as its beginning was encrypted.
    void CheckKey(uint32_t codec, const std::vector<uint8_t>& frame) {
        if (std::find(decrypted_.begin(), decrypted_.end(), codec) != decrypted_.end()) return;
        if (!BeginsRight(codec, frame)) {
            throw InputError(path_ + ": this key does not decrypt it; give the one that it was encrypted with");
        }
        decrypted_.push_back(codec);
    }

    OvxQueue* QueueOf(uint32_t type) const {
        for (const auto& queue : chosen_) {
            if (queue->About().type == type) return static_cast<OvxQueue*>(queue.get());
        }
        return nullptr;
    }

    void Take(const Piece& piece) {
        summary_.Add(piece);
        if (!piece.Usable()) return;
        const int64_t us = clock_.Us(piece.head);
        OvxQueue* queue = QueueOf(piece.head.IsAudio() ? MX_FRAME_AUDIO : MX_FRAME_VIDEO);
        if (queue == nullptr) return;
        const auto channel = piece.extension.Find(OvxReader::kMultiChannel);
        if (channel && channel->bytes[2] > 1) {
            ++other_channels_;
            return;
        }
        MediaFrame frame;
        const MediaStream& about = queue->About();
        const std::vector<uint8_t> bytes = FrameOf(piece);
        if (decryptor_ && piece.extension.Find(OvxReader::kEncrypt)) CheckKey(about.codec, bytes);
        frame.type = about.type;
        frame.codec = about.codec;
        frame.width = about.width;
        frame.height = about.height;
        frame.frame_rate = about.frame_rate;
        frame.samples_per_sec = about.samples_per_sec;
        frame.bits_per_sample = about.bits_per_sample;
        frame.channels = about.channels;
        if (!frame.IsVideo()) {
            frame.SetBytes(bytes.data(), bytes.size());
            queue->PushSound(std::move(frame), us);
            return;
        }
        frame.sub_type = SubTypeOf(piece);
        begun_ = begun_ || frame.IsKey();
        if (!begun_) {
            ++begins_late_;
            return;
        }
        const bool nal_units = frame.codec == MX_VIDEO_H264 || frame.codec == MX_VIDEO_H265;
        const NalUnits units = nal_units ? AnnexBUnits(bytes) : NalUnits{};
        if (units.empty() || HaveLongCodes(bytes, units)) {
            frame.SetBytes(bytes.data(), bytes.size());
        } else {
            frame.bytes = WithLongStartCodes(bytes, units, {}, 0, MediaFrame::kSpare);
        }
        queue->PushPicture(std::move(frame), us);
    }

    std::string path_;
    InputOptions options_;
    FileBytes file_;
    Reader reader_;
    Summary summary_;
    std::optional<Decryptor> decryptor_;
    std::vector<uint32_t> decrypted_;  // codecs of which a frame was right
    std::vector<MediaStream> streams_;
    std::vector<std::unique_ptr<StreamQueue>> chosen_;
    UnitClock clock_;
    uint64_t other_channels_ = 0;
    uint64_t begins_late_ = 0;
    bool begun_ = false;
    bool ended_ = false;
};

}  // namespace

std::unique_ptr<MediaSource> OpenOvxSource(const std::string& path, int first_number, const InputOptions& options,
                                           std::vector<uint8_t> head) {
    return std::make_unique<OvxSource>(path, first_number, options, std::move(head));
}

}  // namespace Orvane::Muxora::Tools
