#include "support/decoded.h"

#include <cstdio>
#include <sstream>

#include "support/process.h"

namespace test {

namespace {

// "0, 40, 40, 1, 115200, 6f..." with the time base in a line "#tb 0: 1/25".
void ReadFrameMd5(const std::string& text, Decoded& decoded) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("#tb 0:", 0) == 0) {
            char slash = 0;
            std::istringstream(line.substr(6)) >> decoded.time_base_num >> slash >> decoded.time_base_den;
            continue;
        }
        if (line.empty() || line[0] == '#') continue;
        for (char& c : line) {
            if (c == ',') c = ' ';
        }
        int stream = 0;
        int64_t dts = 0;
        DecodedFrame frame;
        std::istringstream(line) >> stream >> dts >> frame.pts >> frame.duration >> frame.size >> frame.hash;
        decoded.frames.push_back(frame);
    }
}

std::vector<std::string> Command(const std::string& path, const std::vector<std::string>& input_words) {
    std::vector<std::string> argv{"ffmpeg", "-nostdin", "-hide_banner", "-loglevel", "warning"};
    argv.insert(argv.end(), input_words.begin(), input_words.end());
    argv.insert(argv.end(), {"-i", path});
    return argv;
}

Decoded Decode(const std::string& path, const std::vector<std::string>& input_words, const std::string& map,
               const std::vector<std::string>& output_words) {
    std::vector<std::string> argv = Command(path, input_words);
    argv.insert(argv.end(), {"-map", map});
    argv.insert(argv.end(), output_words.begin(), output_words.end());
    argv.insert(argv.end(), {"-f", "framemd5", "-"});
    const RunResult run = Run(argv);
    Decoded decoded;
    decoded.ok = run.Ok();
    decoded.errors = run.err;
    ReadFrameMd5(run.out, decoded);
    return decoded;
}

}  // namespace

std::vector<std::string> Decoded::Hashes() const {
    std::vector<std::string> hashes;
    for (const DecodedFrame& frame : frames)
        hashes.push_back(frame.hash);
    return hashes;
}

Decoded DecodeVideo(const std::string& path, const std::vector<std::string>& input_words) {
    // passthrough: no picture is doubled or dropped to fill a constant rate.
    return Decode(path, input_words, "0:v:0", {"-fps_mode", "passthrough"});
}

Decoded DecodeAudio(const std::string& path, const std::vector<std::string>& input_words) {
    return Decode(path, input_words, "0:a:0", {});
}

std::string SoundHash(const std::string& path, const std::vector<std::string>& input_words) {
    std::vector<std::string> argv = Command(path, input_words);
    argv.insert(argv.end(), {"-map", "0:a:0", "-c:a", "pcm_s16le", "-f", "md5", "-"});
    const RunResult run = Run(argv);
    return run.Ok() ? run.out : "";
}

std::string Probe(const std::string& path, const std::string& streams, const std::string& entries) {
    std::vector<std::string> argv{"ffprobe", "-v", "error"};
    if (!streams.empty()) argv.insert(argv.end(), {"-select_streams", streams});
    argv.insert(argv.end(), {"-show_entries", entries, "-of", "default=noprint_wrappers=1:nokey=1", path});
    std::string text = Run(argv).out;
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

}  // namespace test
