// Working files whose name was guessed: the system's random numbers come from a plan.
#include <gtest/gtest.h>

#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <deque>

#include "common/working_file.h"
#include "tool.h"

namespace {

std::deque<uint64_t>* g_plan = nullptr;

}  // namespace

// In the place of the C library's.
extern "C" ssize_t getrandom(void* buffer, size_t size, unsigned flags) {
    if (g_plan == nullptr || g_plan->empty() || size != sizeof(uint64_t)) {
        return syscall(SYS_getrandom, buffer, size, flags);
    }
    std::memcpy(buffer, &g_plan->front(), size);
    g_plan->pop_front();
    return static_cast<ssize_t>(size);
}

namespace {

namespace fs = std::filesystem;

// What stands under the name is neither followed nor opened, whoever put it there: the next name is taken.
TEST(WorkingFiles, WhatStandsUnderAGuessedNameIsLeftAlone) {
    const std::string folder = test::FreshDirectory("guessed");
    const std::string victim = folder + "/victim";
    test::WriteFile(victim, {1, 2, 3});
    const auto name = [&](const char* digits) { return folder + "/.x.ts.muxora-" + digits; };
    const std::string link = name("0000000000000001");
    const std::string dangling = name("0000000000000002");
    std::deque<uint64_t> plan = {1, 2, 3};
    g_plan = &plan;
    {
        fs::create_symlink(victim, link);
        fs::create_symlink(folder + "/nothing", dangling);
        Orvane::Muxora::Tools::WorkingFile file(folder + "/x.ts");
        EXPECT_EQ(write(file.Descriptor(), "new", 3), 3);
        EXPECT_TRUE(fs::exists(name("0000000000000003")));
        file.Publish();
    }
    g_plan = nullptr;
    EXPECT_EQ(test::ReadFile(victim), (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_FALSE(fs::exists(folder + "/nothing"));
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(link)));
    EXPECT_EQ(test::ReadFile(folder + "/x.ts"), (std::vector<uint8_t>{'n', 'e', 'w'}));
}

}  // namespace
