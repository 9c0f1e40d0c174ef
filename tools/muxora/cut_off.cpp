#include "muxora/cut_off.h"

#include <cstdint>
#include <filesystem>
#include <fstream>

#include "MuxoraExt.h"

namespace Orvane::Muxora::Tools {

namespace {

// A repair that reads, and stops where it would begin to write.
struct Probe {
    std::ifstream file;
    bool would_write = false;
};

uint32_t Read(void* user, uint64_t position, void* data, uint32_t length) {
    std::ifstream& file = static_cast<Probe*>(user)->file;
    file.seekg(static_cast<std::streamoff>(position));
    file.read(static_cast<char*>(data), length);
    return file ? 0 : 1;
}

uint32_t Write(void* user, uint64_t /*position*/, const void* /*data*/, uint32_t /*length*/) {
    static_cast<Probe*>(user)->would_write = true;
    return 1;
}

uint32_t Cut(void* user, uint64_t /*length*/) {
    return Write(user, 0, nullptr, 0);
}

}  // namespace

bool IsCutOffHybrid(const std::string& path) {
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) return false;
    Probe probe{std::ifstream(path, std::ios::binary)};
    MXHybridFile access{};
    access.size = sizeof access;
    access.user = &probe;
    access.length = std::filesystem::file_size(path, ignored);
    access.read = Read;
    access.write = Write;
    access.cut = Cut;
    MXHybridRepair repair{};
    repair.size = sizeof repair;
    MX_RepairHybrid(&access, &repair);
    return probe.would_write;
}

}  // namespace Orvane::Muxora::Tools
