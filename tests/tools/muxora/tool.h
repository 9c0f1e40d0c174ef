// Runs the muxora tool for its tests.
#pragma once

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/clip.h"
#include "support/decoded.h"
#include "support/process.h"

namespace test {

inline RunResult Muxora(std::vector<std::string> words) {
    words.insert(words.begin(), MUXORA_TOOL);
    return Run(words);
}

// Two seconds of H.264 and AAC.
inline std::string Clip(const std::string& container = "mp4", int b_frames = 0) {
    ClipSpec spec;
    spec.container = container;
    spec.b_frames = b_frames;
    return MakeClip(spec);
}

// An empty directory of its own below the work directory.
inline std::string FreshDirectory(const std::string& name) {
    const std::string path = WorkPath(name);
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path);
    return path;
}

// The names of the files in it, sorted.
inline std::vector<std::string> FilesIn(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

inline bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// One line, with the program's name in front.
inline bool IsOneLine(const std::string& text) {
    return text.rfind("muxora: ", 0) == 0 && std::count(text.begin(), text.end(), '\n') == 1 && text.back() == '\n';
}

// The picture hashes of a file; fails the comparison when the decoder complains of anything but an FLV metadata map
// that does not say where it ends, as all of ours.
inline std::vector<std::string> Pictures(const std::string& path) {
    const Decoded decoded = DecodeVideo(path, {"-v", "error"});
    std::istringstream lines(decoded.errors);
    for (std::string line; std::getline(lines, line);) {
        if (!Contains(line, "Missing AMF_END_OF_OBJECT")) return {decoded.errors};
    }
    if (!decoded.ok) return {"ffmpeg failed"};
    return decoded.Hashes();
}

}  // namespace test
