#include "muxora/presentation_folder.h"

#include <sys/random.h>
#include <sys/stat.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <regex>

#include "common/errors.h"

namespace Orvane::Muxora::Tools {

namespace {

namespace fs = std::filesystem;

constexpr size_t kRandomDigits = 8;

std::string RandomDigits() {
    uint32_t number = 0;
    while (getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number)) {
    }
    char digits[kRandomDigits + 1];
    std::snprintf(digits, sizeof digits, "%08" PRIx32, number);
    return digits;
}

// Takes away the files that this program makes, and the folder if nothing else is in it.
void RemoveMedia(const fs::path& folder) {
    static const std::regex ours(R"((video|audio)\d+(\.m3u8|-init\d+\.mp4|-\d+\.m4s))");
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(folder, ignored)) {
        if (entry.is_regular_file(ignored) && std::regex_match(entry.path().filename().string(), ours)) {
            fs::remove(entry.path(), ignored);
        }
    }
    fs::remove(folder, ignored);
}

}  // namespace

PresentationFolder::PresentationFolder(const std::string& playlist, const std::string& kind)
    : parent_(fs::path(playlist).parent_path().string()),
      prefix_(fs::path(playlist).stem().string() + "-" + kind + "-") {
    if (parent_.empty()) parent_ = ".";
    for (;;) {
        path_ = (fs::path(parent_) / (prefix_ + RandomDigits())).string();
        if (mkdir(path_.c_str(), 0777) == 0) return;
        if (errno != EEXIST) throw Failure("cannot make " + path_ + ": " + std::strerror(errno));
    }
}

PresentationFolder::~PresentationFolder() {
    if (kept_) return;
    try {
        RemoveMedia(path_);
    } catch (...) {
        // The next run takes it away.
    }
}

std::string PresentationFolder::Address() const {
    std::string text;
    for (const char c : fs::path(path_).filename().string()) {
        const bool plain = std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("-._~", c) != nullptr;
        char escaped[4];
        std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
        text += plain ? std::string(1, c) : std::string(escaped);
    }
    return text + "/";
}

void PresentationFolder::Keep() {
    kept_ = true;
    const std::string name = fs::path(path_).filename().string();
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(parent_, ignored)) {
        const std::string other = entry.path().filename().string();
        const bool earlier = other != name && other.size() == name.size() &&
                             other.compare(0, prefix_.size(), prefix_) == 0 &&
                             other.find_first_not_of("0123456789abcdef", prefix_.size()) == std::string::npos;
        if (earlier && fs::is_directory(entry.symlink_status(ignored))) RemoveMedia(entry.path());
    }
}

}  // namespace Orvane::Muxora::Tools
