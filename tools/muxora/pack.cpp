// muxora pack: real media into any format.
#include <CLI/CLI.hpp>

#include <filesystem>
#include <memory>

#include "muxora/batch.h"
#include "muxora/command.h"
#include "muxora/pack_run.h"
#include "muxora/presentation.h"

namespace Orvane::Muxora::Tools {

namespace {

const Format& ChooseFormat(const PackArguments& arguments) {
    if (!arguments.format_key.empty()) {
        const Format* format = FormatByKey(arguments.format_key);
        if (format == nullptr) {
            throw WrongUsage("there is no format '" + arguments.format_key + "'; choose one of: " + FormatKeys());
        }
        return *format;
    }
    const Format* format = FormatByPath(arguments.output);
    if (format == nullptr) {
        throw WrongUsage("the format cannot be told from '" + arguments.output +
                         "'; name it with -f KEY, one of: " + FormatKeys());
    }
    return *format;
}

void CheckArguments(const PackArguments& arguments, const Format& format) {
    const bool piped = arguments.output == "-";
    const std::string key(format.key);
    if (piped && format.seeks) {
        throw WrongUsage(key + " goes back in its output and cannot be piped; write to a file, or choose " +
                         (format.IsIso() || format.number == MX_FORMAT_HMP4
                              ? "fmp4 (mp4noseek is a classic form without going back)"
                              : "a forward-only format (see muxora formats)"));
    }
    const std::string extension = std::filesystem::path(arguments.output).extension().string();
    if (extension == ".m2ts" && (format.number == MX_FORMAT_TS || format.number == MX_FORMAT_XTS)) {
        throw WrongUsage(".m2ts files have packets of 192 bytes, and " + key +
                         " writes 188; name the output .ts, which every player of .m2ts opens");
    }
    if (extension == ".m3u8" || extension == ".mpd") {
        throw WrongUsage(extension + " makes a playlist over CMAF segments, and " + key +
                         " is no form of those; leave -f out, or give the file another name");
    }
    if (arguments.reserve != 0 && !format.IsIso()) {
        throw WrongUsage("--reserve is for the classic forms of mp4, mov and their kin only (-f mp4)");
    }
    if (arguments.reserve != 0 && piped) throw WrongUsage("--reserve makes the format go back; write to a file");
    if (arguments.backup > 0 && !format.IsIso() && !format.IsExact()) {
        throw WrongUsage("--backup is for mp4, mov and their kin, and for the formats with exact times: " + key +
                         " has no index to lose, or no backup");
    }
    if (arguments.backup > 0 && piped) throw WrongUsage("--backup needs a file; a pipe cannot be completed later");
    const bool ovx = format.number == MX_FORMAT_OVX || format.number == MX_FORMAT_OVX_ALT;
    if (!arguments.encrypt.empty() && !ovx) throw WrongUsage("only ovx encrypts");
    if (!arguments.encrypt.empty() && !arguments.key.Given()) {
        throw WrongUsage("--encrypt OFFSET:LENGTH needs a key: --key-file FILE, --key HEX, or MUXORA_KEY");
    }
    if (!arguments.segment.empty() && piped) throw WrongUsage("--segment makes files; a pipe is one stream");
    if (!arguments.key.key.empty()) static_cast<void>(arguments.key.Bytes());
    for (const std::string& path : arguments.input.paths) {
        std::error_code ignored;
        if (!piped && path != "-" && std::filesystem::is_regular_file(path, ignored) &&
            std::filesystem::equivalent(path, arguments.output, ignored)) {
            throw WrongUsage(arguments.output + " is an input as well; write to another file");
        }
    }
}

void Pack(const PackArguments& arguments) {
    if (arguments.jobs != 0) {
        PackBatch(arguments);
        return;
    }
    if (IsPresentation(arguments)) {
        const OwnStdout out;
        PackPresentation(arguments, out);
        return;
    }
    const Format& format = ChooseFormat(arguments);
    CheckArguments(arguments, format);
    const OwnStdout out;
    PackRun run(arguments, format, out);
    run.Run();
    run.Report(out);
}

}  // namespace

void AddPack(CLI::App& app) {
    CLI::App* command = app.add_subcommand("pack", "Pack media files or raw streams into a format");
    auto arguments = std::make_shared<PackArguments>();
    arguments->input.AddTo(*command);
    command
        ->add_option(
            "-o,--output", arguments->output,
            "The file to write; - is the standard output; .m3u8 and .mpd make HLS and DASH, each INPUT a rendition")
        ->required();
    command->add_option("-f,--format", arguments->format_key,
                        "Format key (see muxora formats); else by extension, with exact times");
    command->add_flag("--realtime", arguments->realtime, "As fast as the media plays, not faster");
    command->add_option("--reserve", arguments->reserve, "Classic mp4, mov: room in front for the index, in bytes");
    command
        ->add_option("--backup", arguments->backup,
                     "Grow under the file's own name, so that a killed recording loses at most this many seconds; "
                     "classic mp4, mov: with snapshots of the index beside it (see muxora repair)")
        ->check(CLI::Range(0.1, 3600.0));
    arguments->key.AddTo(*command);
    command->add_option("--encrypt", arguments->encrypt, "ovx: OFFSET:LENGTH of the stretch of each frame to encrypt");
    command->add_option(
        "--segment", arguments->segment,
        "Go on in a new file at the first key frame past this duration or size (10s, 5min, 500MB); %03d "
        "in the name is the number, strftime's conversions the time");
    command->add_flag("--strict", arguments->strict, "Refuse where otherwise a note would tell of something lost");
    command
        ->add_option("--jobs", arguments->jobs,
                     "Pack each INPUT by itself, so many at a time, into the folder -o DIR/, in the form of -f KEY")
        ->check(CLI::Range(1, 1024));
    command->add_flag("--quiet", arguments->quiet, "No progress and no summary");
    command->add_flag("--json", arguments->json, "Print the summary as JSON");
    arguments->rtp.AddTo(*command);
    command->footer(
        "Examples:\n"
        "  muxora pack film.mp4 -o film.ts\n"
        "  muxora pack video.h264 sound.aac --fps 30 -o film.mov\n"
        "  muxora pack film.mkv -f ts -o - | ffplay -\n"
        "  muxora pack camera.ts -o 'part-%03d.mp4' --segment 10min\n"
        "  muxora pack --jobs 4 -f ts -o converted/ *.mp4\n"
        "  muxora pack high.mp4 low.mp4 -o site/index.m3u8 --segment 6s\n"
        "  muxora pack rtsp://camera/1 -o recording.mp4 --realtime --backup 1");
    command->callback([arguments] { Pack(*arguments); });
}

}  // namespace Orvane::Muxora::Tools
