#include "muxora/unpack.h"

#include <CLI/CLI.hpp>

#include <cinttypes>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "common/file_kind.h"
#include "common/output.h"
#include "media_input/file_bytes.h"
#include "muxora/command.h"
#include "muxora/options.h"
#include "ovx_reader/decryptor.h"
#include "ovx_reader/reader.h"
#include "ovx_reader/summary.h"

namespace Orvane::Muxora::Tools {

namespace {

using OvxReader::Decryptor;
using OvxReader::Piece;
using OvxReader::Reader;
using OvxReader::Summary;

// What is known before the first byte is written.
struct Survey {
    Summary summary;
    uint64_t usable = 0;
    std::optional<uint8_t> first_video_codec;
};

Survey LookThrough(OvxReader::ByteSpan bytes) {
    Survey survey;
    Reader reader(bytes);
    while (const auto piece = reader.Next()) {
        survey.summary.Add(*piece);
        if (!piece->Usable()) continue;
        ++survey.usable;
        const auto play_back = piece->extension.Find(OvxReader::kPlayBack);
        if (play_back && !survey.first_video_codec) survey.first_video_codec = play_back->bytes[2];
    }
    return survey;
}

// The files beside each other, one for each stream: PREFIX.h264, PREFIX.aac, PREFIX.2.aac for a second channel.
class Streams {
  public:
    Streams(std::string prefix, std::optional<uint8_t> video_codec)
        : prefix_(std::move(prefix)), video_codec_(video_codec.value_or(0)) {}

    void Write(const Piece& unit, const std::vector<uint8_t>& frame) {
        Stream& stream = Find(NameOf(unit));
        stream.file.Write(frame.data(), frame.size(), std::nullopt);
        if (!stream.file.Trouble().empty()) throw Failure(stream.file.Trouble());
        ++stream.frames;
    }

    void Finish(bool quiet) {
        for (auto& [name, stream] : streams_) {
            stream->file.Publish();
            if (quiet) continue;
            std::printf("%s: %" PRIu64 " frames, %" PRIu64 " bytes\n", name.c_str(), stream->frames,
                        stream->file.End());
        }
    }

  private:
    struct Stream {
        explicit Stream(const std::string& name) : file(name, OutputFile::Growth::kBeside) {}
        OutputFile file;
        uint64_t frames = 0;
    };

    // Key frames name the codec of the frames that follow.
    std::string NameOf(const Piece& unit) {
        std::string name = prefix_ + ".";
        if (const auto channels = unit.extension.Find(OvxReader::kMultiChannel)) {
            name += std::to_string(channels->bytes[2]) + ".";
        }
        if (unit.head.IsAudio()) {
            if (const auto format = unit.extension.Find(OvxReader::kAudioFormat)) audio_codec_ = format->bytes[2];
            return name += OvxReader::AudioCodec(audio_codec_).suffix;
        }
        if (const auto play_back = unit.extension.Find(OvxReader::kPlayBack)) video_codec_ = play_back->bytes[2];
        return name += OvxReader::VideoCodec(video_codec_).suffix;
    }

    Stream& Find(const std::string& name) {
        auto& stream = streams_[name];
        if (stream == nullptr) stream = std::make_unique<Stream>(name);
        return *stream;
    }

    std::string prefix_;
    uint8_t video_codec_;
    uint8_t audio_codec_ = 0;
    std::map<std::string, std::unique_ptr<Stream>> streams_;
};

std::optional<Decryptor> MakeDecryptor(const UnpackArguments& arguments) {
    if (!arguments.key.Given()) return std::nullopt;
    auto decryptor = Decryptor::Make(arguments.key.Bytes());
    if (!decryptor) throw Failure("libcrypto does not take the key");
    if (arguments.encrypted != 0) decryptor->SetStretchLength(arguments.encrypted);
    return decryptor;
}

}  // namespace

void Unpack(const UnpackArguments& arguments) {
    auto decryptor = MakeDecryptor(arguments);
    const FileBytes file(arguments.path);
    const Survey survey = LookThrough(file.All());
    file.CheckWhole(arguments.path);
    if (const FileKind kind = KindOf(file.All()); survey.usable == 0 && kind != FileKind::kUnknown) {
        throw Failure(arguments.path + " is " + KindText(kind) +
                      ", and unpack takes OVX apart; 'ffmpeg -i IN -c copy OUT' does it with the others");
    }
    if (survey.usable == 0) throw Failure(arguments.path + " has no intact OVX unit in it");
    if (survey.summary.encrypted_units != 0 && !decryptor) {
        throw Failure(arguments.path + " is encrypted; give its key with --key-file FILE, --key HEX or MUXORA_KEY");
    }

    Streams streams(arguments.prefix, survey.first_video_codec);
    std::vector<uint8_t> frame;
    Reader reader(file.All());
    while (const auto piece = reader.Next()) {
        if (!piece->Usable()) continue;
        frame.assign(piece->frame.begin(), piece->frame.end());
        if (decryptor) decryptor->Decrypt(piece->extension, frame);
        streams.Write(*piece, frame);
    }
    file.CheckWhole(arguments.path);
    streams.Finish(arguments.quiet);
    if (survey.summary.Damaged()) {
        throw Failure(arguments.path + " is damaged: " + survey.summary.DamageText() +
                      "; every frame that is known to be right was written (muxora inspect tells more)");
    }
}

void AddUnpack(CLI::App& app) {
    CLI::App* command = app.add_subcommand("unpack", "Give back the elementary streams of an OVX file, bit for bit");
    auto arguments = std::make_shared<UnpackArguments>();
    command->add_option("FILE", arguments->path, "The OVX file; - is the standard input")->required();
    command->add_option("-o,--output", arguments->prefix, "Where the streams go: PREFIX.h264, PREFIX.aac and so on")
        ->required();
    arguments->key.AddTo(*command);
    command->add_option("--encrypted", arguments->encrypted,
                        "Length of the encrypted stretch in bytes where it passes 65535: the file keeps 16 bits of it");
    command->add_flag("--quiet", arguments->quiet, "Say nothing");
    command->footer(
        "Example:\n"
        "  muxora unpack recording.ovx -o recording --key-file recording.key\n\n"
        "Frames whose check sums are wrong are left out; the exit code is then 1.");
    command->callback([arguments] { Unpack(*arguments); });
}

}  // namespace Orvane::Muxora::Tools
