// FLV and TS over HTTP in headless Chromium: mpegts.js takes them apart while they come, the browser plays what it
// makes of them.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/clip.h"
#include "support/pack.h"
#include "support/process.h"

namespace {

// Packs three seconds of H.264 and AAC and plays the first two of them. Gives the script's line of findings.
std::string PlayInBrowser(uint32_t format, const std::string& name) {
    test::ClipSpec spec;
    spec.seconds = 3;
    const std::string path = test::WorkPath(name);
    EXPECT_TRUE(test::PackFile(format, test::ClipFrames(spec), path).Ok());
    const auto run = test::Run({"node", BROWSER_SCRIPT, BROWSER_MODULES, "2", path});
    EXPECT_TRUE(run.Ok()) << run.err;
    return run.out;
}

class BrowserPlayers : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(std::filesystem::exists(std::string(BROWSER_MODULES) + "/node_modules/mpegts.js"))
            << "scripts/setup.sh installs what this test needs";
    }
};

testing::AssertionResult Played(const std::string& findings, const std::string& audio_codec) {
    const auto has = [&](const std::string& what) { return findings.find(what) != std::string::npos; };
    const size_t at = findings.find("\"currentTime\":");
    const double time = at == std::string::npos ? 0 : std::stod(findings.substr(at + 14));
    if (time >= 2 && has("\"advanced\":true") && has("\"width\":320,\"height\":240") && has("\"errors\":[]") &&
        has("\"videoCodec\":\"avc1.42") && has("\"audioCodec\":\"" + audio_codec + "\"")) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << findings;
}

// The object type of FLV's configuration is one too low for AAC LC, and reads as AAC Main.
TEST_F(BrowserPlayers, FlvStream) {
    EXPECT_TRUE(Played(PlayInBrowser(MX_FORMAT_FLV_STREAM, "stream.flv"), "mp4a.40.1"));
}

TEST_F(BrowserPlayers, FlvFile) {
    EXPECT_TRUE(Played(PlayInBrowser(MX_FORMAT_FLV, "file.flv"), "mp4a.40.1"));
}

TEST_F(BrowserPlayers, TransportStream) {
    EXPECT_TRUE(Played(PlayInBrowser(MX_FORMAT_TS, "stream.ts"), "mp4a.40.2"));
}

TEST_F(BrowserPlayers, WhatIsNoFlvIsAnError) {
    const std::string path = test::WorkPath("none.flv");
    test::WriteFile(path, std::vector<uint8_t>(100000, 0x5A));
    const auto run = test::Run({"node", BROWSER_SCRIPT, BROWSER_MODULES, "2", path});
    EXPECT_TRUE(run.Ok()) << run.err;
    EXPECT_FALSE(Played(run.out, "mp4a.40.1"));
    EXPECT_NE(run.out.find("FormatUnsupported"), std::string::npos) << run.out;
}

}  // namespace
