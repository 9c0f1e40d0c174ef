#include "basalt/unknown.h"

#include <gtest/gtest.h>

#include <thread>

#include "basalt/last_error.h"

namespace Basalt {
namespace {

class Counted : public IUnknown {
  public:
    explicit Counted(int& gone) : gone_(gone) {}
    Counted(const Counted&) = default;
    ~Counted() override { ++gone_; }

  private:
    int& gone_;
};

TEST(Unknown, GoesWithItsLastReference) {
    int gone = 0;
    IUnknown* const object = new Counted(gone);
    EXPECT_EQ(object->addRef(), 2u);
    EXPECT_EQ(object->addRef(), 3u);
    EXPECT_EQ(object->release(), 2u);
    EXPECT_EQ(object->release(), 1u);
    EXPECT_EQ(gone, 0);
    EXPECT_EQ(object->release(), 0u);
    EXPECT_EQ(gone, 1);
}

TEST(Unknown, DestroyDoesNotAskForReferences) {
    int gone = 0;
    IUnknown* const object = new Counted(gone);
    object->addRef();
    object->destroy();
    EXPECT_EQ(gone, 1);
}

TEST(Unknown, ACopyHasACountOfItsOwn) {
    int gone = 0;
    auto* const object = new Counted(gone);
    object->addRef();
    auto* const copy = new Counted(*object);
    EXPECT_EQ(copy->release(), 0u);
    EXPECT_EQ(gone, 1);
    EXPECT_EQ(object->release(), 1u);
    object->destroy();
}

TEST(Unknown, CountsOnManyThreads) {
    int gone = 0;
    auto* const object = new Counted(gone);
    const auto work = [object] {
        for (int i = 0; i < 10000; ++i) {
            object->addRef();
            object->release();
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(object->release(), 0u);
    EXPECT_EQ(gone, 1);
}

TEST(Unknown, HasAnEmptyVersion) {
    int gone = 0;
    Counted object(gone);
    const CVersion version = object.getVersion();
    EXPECT_EQ(version.getName(), "");
    EXPECT_EQ(version.getMajor(), 0u);
}

TEST(Version, HoldsWhatItWasGiven) {
    const CVersion version("Name", 1, 2, 3, "abc1234", "2026-11-21");
    const CVersion copy = version;  // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(copy.getName(), "Name");
    EXPECT_EQ(copy.getMajor(), 1u);
    EXPECT_EQ(copy.getMinor(), 2u);
    EXPECT_EQ(copy.getRevision(), 3u);
    EXPECT_EQ(copy.getRevisionControl(), "abc1234");
    EXPECT_EQ(copy.getBuildDate(), "2026-11-21");
    CVersion assigned;
    assigned = version;
    EXPECT_EQ(assigned.getName(), "Name");
}

TEST(LastError, EachThreadHasItsOwn) {
    setLastError(7);
    uint32_t fresh = 99;
    uint32_t set = 0;
    std::thread([&] {
        fresh = getLastError();
        setLastError(0x10030010);
        set = getLastError();
    }).join();
    EXPECT_EQ(fresh, 0u);
    EXPECT_EQ(set, 0x10030010u);
    EXPECT_EQ(getLastError(), 7u);
    setLastError(0);
    EXPECT_EQ(getLastError(), 0u);
}

}  // namespace
}  // namespace Basalt
