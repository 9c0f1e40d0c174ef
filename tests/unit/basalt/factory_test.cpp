#include "basalt/factory.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace Basalt {
namespace {

class Plain : public IFactoryUnknown {
  public:
    flex_string getName() override { return "Plain"; }
};

TEST(FactoryRegistry, FindsByExactName) {
    Plain factory;
    EXPECT_EQ(IFactoryUnknown::findFactory("test.one"), nullptr);
    IFactoryUnknown::registerFactory("test.one", &factory);
    EXPECT_EQ(IFactoryUnknown::findFactory("test.one"), &factory);
    EXPECT_EQ(IFactoryUnknown::findFactory("Test.one"), nullptr);
    EXPECT_EQ(IFactoryUnknown::findFactory("test.on"), nullptr);
    EXPECT_EQ(IFactoryUnknown::findFactory(""), nullptr);
    IFactoryUnknown::unregisterFactory("test.one", &factory);
    EXPECT_EQ(IFactoryUnknown::findFactory("test.one"), nullptr);
}

TEST(FactoryRegistry, TheFirstOfSeveralIsFoundAndEachTakesOutItsOwn) {
    Plain first;
    Plain second;
    IFactoryUnknown::registerFactory("test.two", &first);
    IFactoryUnknown::registerFactory("test.two", &second);
    EXPECT_EQ(IFactoryUnknown::findFactory("test.two"), &first);
    IFactoryUnknown::unregisterFactory("test.two", &first);
    EXPECT_EQ(IFactoryUnknown::findFactory("test.two"), &second);
    IFactoryUnknown::unregisterFactory("test.two", &first);
    EXPECT_EQ(IFactoryUnknown::findFactory("test.two"), &second);
    IFactoryUnknown::unregisterFactory("test.other", &second);
    EXPECT_EQ(IFactoryUnknown::findFactory("test.two"), &second);
    IFactoryUnknown::unregisterFactory("test.two", &second);
    EXPECT_EQ(IFactoryUnknown::findFactory("test.two"), nullptr);
}

TEST(FactoryRegistry, MayBeUsedOnManyThreads) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread] {
            Plain factory;
            const std::string own = "test.thread" + std::to_string(thread);
            for (int i = 0; i < 500; ++i) {
                IFactoryUnknown::registerFactory(own, &factory);
                ASSERT_EQ(IFactoryUnknown::findFactory(own), &factory);
                IFactoryUnknown::unregisterFactory(own, &factory);
                ASSERT_EQ(IFactoryUnknown::findFactory(own), nullptr);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
}  // namespace Basalt
