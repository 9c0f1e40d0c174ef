#if !defined(NOMINMAX)
#define NOMINMAX  // libstdc++ has it already
#endif
#include <windows.h>

#include <algorithm>
#include <string>

#include "basalt/native_file.h"

namespace Basalt::NativeFile {

namespace {

constexpr size_t kLargestWrite = size_t{1} << 30;  // one call takes 32 bits of length

HANDLE Native(Handle file) {
    return reinterpret_cast<HANDLE>(file);
}

// Empty for what is no UTF-8.
std::wstring Wide(const char* text) {
    const int count = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
    if (count <= 1) return {};
    std::wstring wide(static_cast<size_t>(count), L'\0');
    if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, wide.data(), count) != count) return {};
    wide.resize(static_cast<size_t>(count) - 1);
    return wide;
}

// A path longer than MAX_PATH has to be absolute and to say that it is to be taken as it stands.
std::wstring WithoutLimit(std::wstring path) {
    if (path.size() < MAX_PATH - 12) return path;  // as short as a folder's has to be
    const DWORD room = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (room == 0) return path;
    std::wstring full(room, L'\0');
    const DWORD length = GetFullPathNameW(path.c_str(), room, full.data(), nullptr);
    if (length == 0 || length >= room) return path;
    full.resize(length);
    if (full.rfind(LR"(\\?\)", 0) == 0 || full.rfind(LR"(\\.\)", 0) == 0) return full;
    if (full.rfind(LR"(\\)", 0) == 0) return LR"(\\?\UNC\)" + full.substr(2);
    return LR"(\\?\)" + full;
}

// Calls WriteFile until all is written; `place(done)` gives the position to write at, or null.
template <typename Place>
size_t WriteAll(Handle file, const uint8_t* data, size_t length, Place place) {
    size_t done = 0;
    while (done < length) {
        DWORD count = 0;
        const auto wanted = static_cast<DWORD>((std::min)(length - done, kLargestWrite));
        if (WriteFile(Native(file), data + done, wanted, &count, place(done)) == 0 || count == 0) break;
        done += count;
    }
    return done;
}

}  // namespace

Handle Open(const char* path, bool create) {
    try {
        const std::wstring wide = WithoutLimit(Wide(path));
        if (wide.empty()) return kClosed;
        // Others may look, write a snapshot over it, move and remove it meanwhile, as on other systems.
        constexpr DWORD kSharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
        const HANDLE file = CreateFileW(wide.c_str(), GENERIC_WRITE, kSharing, nullptr,
                                        create ? CREATE_ALWAYS : OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        return reinterpret_cast<Handle>(file);  // INVALID_HANDLE_VALUE is kClosed
    } catch (const std::exception&) {
        return kClosed;  // no memory for the path
    }
}

bool Close(Handle file) {
    return CloseHandle(Native(file)) != 0;
}

bool HasPositions(Handle file) {
    return GetFileType(Native(file)) == FILE_TYPE_DISK;
}

size_t WriteAt(Handle file, const uint8_t* data, size_t length, int64_t position) {
    OVERLAPPED overlapped{};
    return WriteAll(file, data, length, [&](size_t done) {
        const uint64_t at = static_cast<uint64_t>(position) + done;
        overlapped = {};
        overlapped.Offset = static_cast<DWORD>(at);
        overlapped.OffsetHigh = static_cast<DWORD>(at >> 32);
        return &overlapped;
    });
}

size_t WriteNext(Handle file, const uint8_t* data, size_t length) {
    return WriteAll(file, data, length, [](size_t /*done*/) { return static_cast<OVERLAPPED*>(nullptr); });
}

}  // namespace Basalt::NativeFile
