// One stream for every format: a head, some sixty frames with a snapshot among them, a tail. What a format does not
// take is not in its scenario. Times, SSRCs and clocks are fixed, so that two runs give the same bytes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "MuxoraAPI.h"
#include "support/hex.h"

namespace test {

struct ScenarioFrame {
    MXFrameInfo record;
    ByteVector bytes;  // with a readable byte behind them
};

struct FormatUnderTest {
    uint32_t number;
    const char* name;
    // What stands of a frame that memory was missing for. Most formats are as if it had not been given. Of some the
    // time goes on, or the numbers that it took are gone.
    enum class Lost { kAsIfNotGiven, kTimeGoesOn } lost;
    // Formats in which a frame may be lost and answer MX_OK; see MX_InputFrame.
    bool loses_in_silence;
    // Formats whose blocks hold several frames: a frame without a block of its own is not lost.
    bool gathers = false;
};

// All that MX_CreateHandle makes.
std::vector<FormatUnderTest> FormatsUnderTest();

// Without the formats with exact times: of those a frame that memory was missing for may still leave its time, or the
// streams that it announced.
std::vector<FormatUnderTest> ClassicFormatsUnderTest();

std::vector<ScenarioFrame> Scenario(uint32_t format);

// MUXORA_FAULTS=all tries every point; without it a short run leaves most out.
bool TryAllPoints();
// How many points of a kind to try: all, or so many.
inline size_t PointsOf(size_t few) {
    return TryAllPoints() ? SIZE_MAX : few;
}

}  // namespace test
