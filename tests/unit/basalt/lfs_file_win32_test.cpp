// What CLfsFile makes of Windows: names in UTF-8, long paths, sharing, pipes.
#if !defined(NOMINMAX)
#define NOMINMAX  // libstdc++ has it already
#endif
#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "basalt/lfs_file.h"
#include "support/hex.h"
#include "support/temp_folder.h"

namespace Basalt {
namespace {

using test::Text;

constexpr uint32_t kMode = 4225;

class LfsFileWin32 : public testing::Test {
  protected:
    size_t Write(const std::string& text) { return file.write(text.data(), text.size()); }

    test::TempFolder folder;
    CLfsFile file;
};

// The bytes of a file, opened by its wide name.
std::string Content(const std::wstring& path) {
    const HANDLE handle =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return "no such file";
    char bytes[100];
    DWORD count = 0;
    ReadFile(handle, bytes, sizeof bytes, &count, nullptr);
    CloseHandle(handle);
    return {bytes, count};
}

std::wstring Wide(const std::string& ascii) {
    return {ascii.begin(), ascii.end()};
}

TEST_F(LfsFileWin32, NamesAreUtf8) {
    // U+00E9, U+6C34 and U+1F600, which takes two units of UTF-16.
    ASSERT_TRUE(file.open((folder.Path("") + "\xC3\xA9\xE6\xB0\xB4\xF0\x9F\x98\x80.ovx").c_str(), kMode));
    EXPECT_EQ(Write("abc"), 3u);
    EXPECT_EQ(Content(Wide(folder.Path("")) + L"\u00E9\u6C34\U0001F600.ovx"), "abc");
    EXPECT_FALSE(file.open((folder.Path("") + "\xC3(.ovx").c_str(), kMode));
    EXPECT_FALSE(file.open("", kMode));
}

TEST_F(LfsFileWin32, PathsGoBeyond260Characters) {
    std::wstring wide = LR"(\\?\)" + Wide(folder.Path(""));
    std::string path = folder.Path("");
    while (path.size() < 600) {
        path += std::string(100, 'd') + "\\";
        wide += std::wstring(100, L'd') + L"\\";
        ASSERT_NE(CreateDirectoryW(wide.c_str(), nullptr), 0) << path.size();
    }
    ASSERT_TRUE(file.open((path + "out").c_str(), kMode));
    EXPECT_EQ(Write("far"), 3u);
    EXPECT_EQ(Content(wide + L"out"), "far");
    // Slashes and dots are resolved on the way, as in a short path.
    ASSERT_TRUE(file.open((path + "./../" + std::string(100, 'd') + "/again").c_str(), kMode));
    EXPECT_EQ(Write("once more"), 9u);
    EXPECT_EQ(Content(wide + L"again"), "once more");
    // Already as it has to be.
    ASSERT_TRUE(file.open(("\\\\?\\" + path + "third").c_str(), kMode));
    file.close();
    EXPECT_EQ(Content(wide + L"third"), "");
    for (const wchar_t* name : {L"out", L"again", L"third"})
        EXPECT_NE(DeleteFileW((wide + name).c_str()), 0);
    while (wide.size() > folder.Path("").size() + 4) {
        EXPECT_NE(RemoveDirectoryW(wide.c_str()), 0);
        wide.resize(wide.size() - 101);
    }
}

TEST_F(LfsFileWin32, OthersMayReadMoveAndRemoveItMeanwhile) {
    const std::string path = folder.Path("out");
    ASSERT_TRUE(file.open(path.c_str(), kMode));
    EXPECT_EQ(Write("abc"), 3u);
    EXPECT_EQ(Content(Wide(path)), "abc");
    EXPECT_NE(MoveFileW(Wide(path).c_str(), Wide(path + "2").c_str()), 0);
    EXPECT_EQ(Write("def"), 3u);
    EXPECT_EQ(Content(Wide(path + "2")), "abcdef");
    EXPECT_NE(DeleteFileW(Wide(path + "2").c_str()), 0);
    EXPECT_EQ(Write("ghi"), 3u);
    EXPECT_TRUE(file.close());
}

TEST_F(LfsFileWin32, APipeTakesTheBytesInOrder) {
    const std::string name = R"(\\.\pipe\muxora_test_)" + std::to_string(GetCurrentProcessId());
    const HANDLE reader =
        CreateNamedPipeA(name.c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_BYTE, 1, 4096, 4096, 0, nullptr);
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    ASSERT_TRUE(file.open(name.c_str(), LFS_WRITE | LFS_BINARY));
    EXPECT_EQ(Write("abc"), 3u);
    file.seek(1, 0);
    EXPECT_EQ(Write("XX"), 0u);
    file.seek(3, 0);
    EXPECT_EQ(Write("def"), 3u);
    char got[16];
    DWORD count = 0;
    ASSERT_NE(ReadFile(reader, got, sizeof got, &count, nullptr), 0);
    std::string text(got, count);
    if (text.size() < 6 && ReadFile(reader, got, sizeof got, &count, nullptr) != 0) text.append(got, count);
    EXPECT_EQ(text, "abcdef");
    CloseHandle(reader);
    EXPECT_EQ(Write("ghi"), 0u);
}

}  // namespace
}  // namespace Basalt
