#include "basalt/lfs_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <string>

#include "support/hex.h"
#include "support/temp_folder.h"

namespace Basalt {
namespace {

using test::operator+;
using test::Text;

constexpr uint32_t kMode = 4225;

class LfsFile : public testing::Test {
  protected:
    size_t Write(const std::string& text) { return file.write(text.data(), text.size()); }

    test::TempFolder folder;
    const std::string path = folder.Path("out");
    CLfsFile file;
};

TEST_F(LfsFile, TheModeIsMadeOfItsFlags) {
    EXPECT_EQ(LFS_CREATE | LFS_WRITE | LFS_BINARY, 4225);
}

TEST_F(LfsFile, WritesOneBehindTheOther) {
    ASSERT_TRUE(file.open(path.c_str(), kMode));
    EXPECT_TRUE(file.isOpen());
    EXPECT_EQ(Write("abc"), 3u);
    EXPECT_EQ(Write("def"), 3u);
    EXPECT_EQ(Write(""), 0u);
    // Nothing is kept back: the bytes are there while the file is open.
    EXPECT_EQ(test::ReadFile(path), Text("abcdef"));
    EXPECT_TRUE(file.close());
    EXPECT_FALSE(file.isOpen());
}

TEST_F(LfsFile, SeeksFromTheStartAndFromTheCurrentPosition) {
    ASSERT_TRUE(file.open(path.c_str(), kMode));
    Write("abcdef");
    EXPECT_TRUE(file.seek(1, 0));
    Write("B");
    EXPECT_TRUE(file.seek(1, 1));
    Write("D");
    EXPECT_TRUE(file.seek(0, 1));
    Write("E");
    EXPECT_TRUE(file.seek(-5, 1));
    Write("A");
    EXPECT_TRUE(file.seek(8, 0));
    Write("I");
    EXPECT_EQ(test::ReadFile(path), Text("ABcDEf") + test::Bytes("00 00") + Text("I"));
}

TEST_F(LfsFile, RefusesPlacesThatDoNotExist) {
    EXPECT_FALSE(file.seek(0, 0));
    ASSERT_TRUE(file.open(path.c_str(), kMode));
    Write("ab");
    EXPECT_FALSE(file.seek(-1, 0));
    EXPECT_FALSE(file.seek(-3, 1));
    EXPECT_FALSE(file.seek(0, 2));
    EXPECT_FALSE(file.seek(std::numeric_limits<int64_t>::max(), 1));
    EXPECT_FALSE(file.seek(std::numeric_limits<int64_t>::min(), 1));
    Write("c");
    EXPECT_EQ(test::ReadFile(path), Text("abc"));
    EXPECT_TRUE(file.seek(std::numeric_limits<int64_t>::max(), 0));
    EXPECT_EQ(Write("x"), 0u);
}

TEST_F(LfsFile, PositionsGoBeyond32Bits) {
    ASSERT_TRUE(file.open(path.c_str(), kMode));
    ASSERT_TRUE(file.seek(0x140000000, 0));
    EXPECT_EQ(Write("far"), 3u);
    file.close();
    EXPECT_EQ(std::filesystem::file_size(path), 0x140000003u);
}

TEST_F(LfsFile, OpeningEmptiesAFileThatIsThere) {
    ASSERT_TRUE(file.open(path.c_str(), kMode));
    Write("before");
    // Open again without a close: the first one is closed by itself.
    ASSERT_TRUE(file.open(path.c_str(), kMode));
    EXPECT_EQ(test::ReadFile(path), test::ByteVector{});
    Write("now");
    EXPECT_EQ(test::ReadFile(path), Text("now"));
    // Without the flag the file stays, and one that is missing is not made.
    ASSERT_TRUE(file.open(path.c_str(), LFS_WRITE | LFS_BINARY));
    Write("N");
    EXPECT_EQ(test::ReadFile(path), Text("Now"));
    EXPECT_FALSE(file.open(folder.Path("missing").c_str(), LFS_WRITE | LFS_BINARY));
}

TEST_F(LfsFile, RefusesWhatItCannotOpen) {
    EXPECT_FALSE(file.open(nullptr, kMode));
    EXPECT_FALSE(file.open(folder.Path("missing/out").c_str(), kMode));
    EXPECT_FALSE(file.open(folder.Path("").c_str(), kMode));
    EXPECT_FALSE(file.open(path.c_str(), LFS_CREATE | LFS_BINARY));
    EXPECT_FALSE(file.isOpen());
    EXPECT_TRUE(file.close());
}

TEST_F(LfsFile, ClosedItTakesNothing) {
    EXPECT_EQ(Write("abc"), 0u);
    ASSERT_TRUE(file.open(path.c_str(), kMode));
    EXPECT_EQ(file.write(nullptr, 5), 0u);
    file.close();
    EXPECT_EQ(Write("abc"), 0u);
    EXPECT_EQ(test::ReadFile(path), test::ByteVector{});
}

TEST_F(LfsFile, GoesOutOfScopeClosed) {
    {
        CLfsFile other;
        ASSERT_TRUE(other.open(path.c_str(), kMode));
        other.write("abc", 3);
    }
    EXPECT_EQ(test::ReadFile(path), Text("abc"));
}

}  // namespace
}  // namespace Basalt
