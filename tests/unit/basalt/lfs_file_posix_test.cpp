// What CLfsFile makes of POSIX: pipes, devices, limits, signals.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <string>
#include <thread>
#include <utility>

#include "basalt/lfs_file.h"
#include "support/hex.h"
#include "support/temp_folder.h"

namespace Basalt {
namespace {

using test::Text;

constexpr uint32_t kMode = 4225;

class LfsFilePosix : public testing::Test {
  protected:
    size_t Write(const std::string& text) { return file.write(text.data(), text.size()); }

    test::TempFolder folder;
    const std::string path = folder.Path("out");
    CLfsFile file;
};

TEST_F(LfsFilePosix, AFullDiskIsAShortWrite) {
    ASSERT_TRUE(file.open("/dev/full", kMode));
    EXPECT_EQ(Write("abc"), 0u);
    EXPECT_EQ(Write("abc"), 0u);
    EXPECT_TRUE(file.close());
}

TEST_F(LfsFilePosix, ANewFileIsAsOpenAsTheUmaskLetsIt) {
    for (const auto& [mask, mode] : {std::pair<mode_t, mode_t>{0, 0666}, {022, 0644}, {077, 0600}}) {
        ::unlink(path.c_str());
        const mode_t before = ::umask(mask);
        EXPECT_TRUE(file.open(path.c_str(), kMode));
        ::umask(before);
        EXPECT_TRUE(file.close());
        struct stat status {};
        ASSERT_EQ(::stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, mode) << mask;
    }
}

// The soft limit of a file's size, for the life of the object.
class ScopedFileSizeLimit {
  public:
    explicit ScopedFileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~ScopedFileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }
    ScopedFileSizeLimit(const ScopedFileSizeLimit&) = delete;
    ScopedFileSizeLimit& operator=(const ScopedFileSizeLimit&) = delete;

  private:
    rlimit before_{};
};

// By default the signal of a file that has reached its limit ends the process.
TEST_F(LfsFilePosix, AFileAtTheLimitOfItsSizeIsAShortWrite) {
    ASSERT_TRUE(file.open(path.c_str(), kMode));
    {
        const ScopedFileSizeLimit limit(8);
        EXPECT_EQ(Write("0123456789"), 8u);
        EXPECT_EQ(Write("ab"), 0u);
        file.seek(2, 0);
        EXPECT_EQ(Write("cd"), 2u);
        file.seek(100, 0);
        EXPECT_EQ(Write("ef"), 0u);
    }
    sigset_t waiting;
    sigpending(&waiting);
    EXPECT_EQ(sigismember(&waiting, SIGXFSZ), 0);
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGXFSZ), 0);
    file.seek(8, 0);
    EXPECT_EQ(Write("ef"), 2u);
    EXPECT_EQ(test::ReadFile(path), Text("01cd4567ef"));
}

// A signal that the caller holds back and that waits already is the caller's, and stays.
TEST_F(LfsFilePosix, LeavesTheCallersWaitingSignal) {
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGXFSZ);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &held, &before);
    raise(SIGXFSZ);
    ASSERT_TRUE(file.open(path.c_str(), kMode));
    {
        const ScopedFileSizeLimit limit(1);
        EXPECT_EQ(Write("ab"), 1u);
    }
    sigset_t waiting;
    sigpending(&waiting);
    EXPECT_EQ(sigismember(&waiting, SIGXFSZ), 1);
    constexpr timespec kNow{};
    EXPECT_EQ(sigtimedwait(&held, nullptr, &kNow), SIGXFSZ);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(LfsFilePosix, APipeTakesTheBytesInOrder) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_TRUE(file.open(path.c_str(), LFS_WRITE | LFS_BINARY));
    EXPECT_EQ(Write("abc"), 3u);
    // Going back is not possible; from the end of what was sent it goes on.
    file.seek(1, 0);
    EXPECT_EQ(Write("XX"), 0u);
    file.seek(3, 0);
    EXPECT_EQ(Write("def"), 3u);
    char got[16];
    ASSERT_EQ(::read(reader, got, sizeof got), 6);
    EXPECT_EQ(std::string(got, 6), "abcdef");
    ::close(reader);
    // The reader went away. The signal that this raises must not reach anyone, whatever its disposition is.
    EXPECT_EQ(Write("ghi"), 0u);
    EXPECT_EQ(Write("jkl"), 0u);
    sigset_t waiting;
    sigpending(&waiting);
    EXPECT_EQ(sigismember(&waiting, SIGPIPE), 0);
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGPIPE), 0);
}

volatile std::sig_atomic_t interruptions = 0;

// A pipe is open once somebody reads from it; until then signals come again and again.
TEST_F(LfsFilePosix, AnOpeningThatIsInterruptedGoesOn) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    struct sigaction before {};
    struct sigaction counting {};
    counting.sa_handler = [](int) { interruptions = interruptions + 1; };
    ASSERT_EQ(sigaction(SIGUSR1, &counting, &before), 0);
    interruptions = 0;
    int reader = -1;
    std::thread other([&, caller = pthread_self()] {
        while (interruptions < 20) {
            pthread_kill(caller, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
    });
    EXPECT_TRUE(file.open(path.c_str(), LFS_WRITE | LFS_BINARY));
    other.join();
    EXPECT_EQ(Write("abc"), 3u);
    ::close(reader);
    sigaction(SIGUSR1, &before, nullptr);
}

}  // namespace
}  // namespace Basalt
