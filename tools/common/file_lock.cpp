#include "common/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>

namespace Orvane::Muxora::Tools {

bool TryLock(int descriptor) {
    while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        return errno != EWOULDBLOCK;
    }
    return true;
}

std::string HolderOf(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return "another process";
    // proc(5): "1: FLOCK  ADVISORY  WRITE 1234 fd:01:5678 0 EOF", the file by device and inode.
    const std::string inode = ":" + std::to_string(status.st_ino);
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number;
        std::string kind;
        std::string advisory;
        std::string mode;
        std::string process;
        std::string file;
        words >> number >> kind >> advisory >> mode >> process >> file;
        if (kind != "FLOCK" || file.size() <= inode.size()) continue;
        if (file.compare(file.size() - inode.size(), inode.size(), inode) != 0) continue;
        std::ifstream name("/proc/" + process + "/comm");
        std::string program;
        std::getline(name, program);
        return "process " + process + (program.empty() ? "" : " (" + program + ")");
    }
    return "another process";
}

std::optional<std::string> HolderOf(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0) return std::nullopt;
    std::optional<std::string> holder;
    if (!TryLock(descriptor)) holder = HolderOf(descriptor);
    close(descriptor);
    return holder;
}

}  // namespace Orvane::Muxora::Tools
