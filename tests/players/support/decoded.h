// What ffmpeg sees in a file: decoded pictures and sound, streams.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace test {

struct DecodedFrame {
    int64_t pts = 0;       // in the stream's time base
    int64_t duration = 0;  // in the stream's time base
    uint64_t size = 0;     // decoded bytes
    std::string hash;      // MD5 of the decoded bytes
};

struct Decoded {
    bool ok = false;     // ffmpeg went through without an error
    std::string errors;  // what it said on the way
    int64_t time_base_num = 0;
    int64_t time_base_den = 1;
    std::vector<DecodedFrame> frames;

    std::vector<std::string> Hashes() const;
};

// Decodes the first video or audio stream of the file, one hash a frame, every frame once and in order. `input_words`
// go in front of the file, such as {"-f", "mpegts"}.
Decoded DecodeVideo(const std::string& path, const std::vector<std::string>& input_words = {});
Decoded DecodeAudio(const std::string& path, const std::vector<std::string>& input_words = {});
// One hash for the whole sound, sample by sample: containers cut PCM and G.711 into different packets.
std::string SoundHash(const std::string& path, const std::vector<std::string>& input_words = {});

// A field of ffprobe, for example Probe(path, "v:0", "stream=codec_name"): its bare values, one to a line.
std::string Probe(const std::string& path, const std::string& streams, const std::string& entries);

}  // namespace test
