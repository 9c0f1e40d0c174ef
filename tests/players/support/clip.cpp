#include "support/clip.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "support/process.h"

namespace test {

namespace fs = std::filesystem;

namespace {

using Words = std::vector<std::string>;

void Add(Words& to, const Words& more) {
    to.insert(to.end(), more.begin(), more.end());
}

Words VideoWords(const ClipSpec& spec) {
    const std::string gop = std::to_string(spec.gop);
    const std::string b_frames = std::to_string(spec.b_frames);
    const std::string slices = std::to_string(spec.slices);
    Words words{"-pix_fmt", "yuv420p", "-g", gop, "-threads", "1"};
    if (spec.video == "h264") {
        Add(words, {"-c:v", "libx264", "-preset", "ultrafast", "-bf", b_frames, "-x264-params",
                    "keyint=" + gop + ":min-keyint=" + gop + ":scenecut=0:slices=" + slices + ":b-adapt=0"});
    } else if (spec.video == "hevc") {
        Add(words, {"-c:v", "libx265", "-preset", "ultrafast", "-x265-params",
                    "log-level=none:pools=none:frame-threads=1:scenecut=0:open-gop=0:keyint=" + gop +
                        ":min-keyint=" + gop + ":bframes=" + b_frames + ":slices=" + slices});
    } else if (spec.video == "mjpeg") {
        words = {"-c:v", "mjpeg", "-pix_fmt", "yuvj420p", "-q:v", "5", "-threads", "1"};
    } else {
        Add(words, {"-c:v", spec.video, "-bf", b_frames, "-q:v", "5", "-sc_threshold", "1000000000"});
    }
    return words;
}

Words AudioWords(const ClipSpec& spec, int rate) {
    std::string codec = spec.audio;
    if (codec == "mp3") codec = "libmp3lame";
    if (codec == "alaw" || codec == "mulaw") codec = "pcm_" + codec;
    if (codec == "pcm") codec = "pcm_s16le";
    return {"-c:a", codec, "-ar", std::to_string(rate), "-ac", std::to_string(spec.channels), "-b:a", "64k"};
}

int RateOf(const ClipSpec& spec) {
    if (spec.sample_rate != 0) return spec.sample_rate;
    return spec.audio == "alaw" || spec.audio == "mulaw" ? 8000 : 48000;
}

fs::path ClipDirectory() {
    const char* wanted = std::getenv("MUXORA_CLIP_DIR");
    fs::path folder = wanted != nullptr && *wanted != 0
                          ? fs::path(wanted)
                          : fs::temp_directory_path() / ("muxora-clips-" + std::to_string(getuid()));
    fs::create_directories(folder);
    return folder;
}

// Removed when the process ends.
struct Scratch {
    Scratch() {
        std::string name = (fs::temp_directory_path() / "muxora-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
        path = name;
    }
    ~Scratch() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    fs::path path;
};

}  // namespace

std::string MakeClip(const ClipSpec& spec) {
    const int rate = RateOf(spec);
    std::ostringstream name;
    name << (spec.video.empty() ? "none" : spec.video) << '-' << (spec.audio.empty() ? "none" : spec.audio) << '-'
         << spec.width << 'x' << spec.height << "-f" << spec.fps << "-g" << spec.gop << "-b" << spec.b_frames << "-s"
         << spec.slices << "-t" << spec.seconds << "-r" << rate << "-c" << spec.channels << (spec.noise ? "-noise" : "")
         << (spec.index_in_front ? "-front" : "") << '.' << spec.container;
    const fs::path path = ClipDirectory() / name.str();
    if (fs::exists(path)) return path.string();

    std::ostringstream length;
    length << spec.seconds;
    Words argv{"ffmpeg", "-nostdin", "-hide_banner", "-loglevel", "error", "-y"};
    if (!spec.video.empty()) {
        Add(argv, {"-f", "lavfi", "-i",
                   "testsrc2=size=" + std::to_string(spec.width) + "x" + std::to_string(spec.height) +
                       ":rate=" + std::to_string(spec.fps) + ":duration=" + length.str() +
                       (spec.noise ? ",noise=alls=80:allf=t" : "")});
    }
    if (!spec.audio.empty()) {
        Add(argv,
            {"-f", "lavfi", "-i",
             "sine=frequency=440:beep_factor=4:sample_rate=" + std::to_string(rate) + ":duration=" + length.str()});
    }
    if (!spec.video.empty()) Add(argv, VideoWords(spec));
    if (!spec.audio.empty()) Add(argv, AudioWords(spec, rate));
    if (spec.noise) Add(argv, {"-qp", "4"});
    if (spec.index_in_front) Add(argv, {"-movflags", "+faststart"});
    Add(argv, {"-fflags", "+bitexact", "-flags", "+bitexact"});
    // Tests run side by side: each makes its own file and moves it into place in one step.
    const fs::path unfinished = path.parent_path() / ("unfinished-" + std::to_string(getpid()) + "-" + name.str());
    argv.push_back(unfinished.string());
    const RunResult result = Run(argv);
    if (!result.Ok()) {
        fs::remove(unfinished);
        throw std::runtime_error("ffmpeg could not make " + name.str() + ": " + result.err);
    }
    fs::rename(unfinished, path);
    return path.string();
}

std::vector<Orvane::Muxora::Tools::MediaFrame> ClipFrames(const ClipSpec& spec) {
    return Orvane::Muxora::Tools::ReadAllFrames({MakeClip(spec)});
}

std::string WorkDirectory() {
    static const Scratch scratch;
    return scratch.path.string();
}

std::string WorkPath(const std::string& name) {
    return (fs::path(WorkDirectory()) / name).string();
}

std::vector<uint8_t> ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush()) throw std::runtime_error("cannot write " + path);
}

}  // namespace test
