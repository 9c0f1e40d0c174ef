// Small synthetic clips, made by ffmpeg once and kept in a directory for all tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media_input/media_input.h"

namespace test {

struct ClipSpec {
    // h264, hevc, mpeg4, mpeg2video, mjpeg; empty: no video.
    std::string video = "h264";
    // aac, mp2, mp3, alaw, mulaw, pcm; empty: no audio.
    std::string audio = "aac";
    int width = 320;
    int height = 240;
    int fps = 25;
    int gop = 25;
    int b_frames = 0;  // B pictures in a row; 0: none
    int slices = 1;
    double seconds = 2;
    bool noise = false;           // H.264 pictures of some 100 kB at the size above, whatever they show
    bool index_in_front = false;  // of mp4: it can be read from a pipe
    int sample_rate = 48000;      // 0: 8000 for A-law and mu-law, 48000 for the others
    int channels = 1;
    // The container of the clip: mkv takes every codec. mp4, ts, avi, wav, h264 ... for tests of the input.
    std::string container = "mkv";
};

// Path of the clip. The first call makes it; throws std::runtime_error with ffmpeg's words if that fails.
std::string MakeClip(const ClipSpec& spec);

// The clip's frames as the library takes them, interleaved by time.
std::vector<Orvane::Muxora::Tools::MediaFrame> ClipFrames(const ClipSpec& spec);

// A directory of this process, removed at its end.
std::string WorkDirectory();
// A path in it.
std::string WorkPath(const std::string& name);

std::vector<uint8_t> ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::vector<uint8_t>& bytes);

}  // namespace test
