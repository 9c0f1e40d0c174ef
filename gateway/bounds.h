// What is bounded, and by how much: every bound of the gateway stands here, or is an option that begins as one of
// these.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace Orvane::Muxora::Gateway {

// Frames that a source may have under way to its stream's thread; a source that is ahead waits.
constexpr size_t kMaxFramesUnderWay = 512;
// The current group of pictures, kept for those who join.
constexpr size_t kMaxGopFrames = 1500;
constexpr size_t kMaxGopBytes = 32u << 20;

// What waits for one client. A client beyond it loses what waits and goes on with a later key frame. The group of
// pictures that a client begins with has its place, with as much again while it goes out.
constexpr size_t kDefaultQueueBytes = 8u << 20;
constexpr size_t kMaxQueueBlocks = 4096;
static_assert(kMaxQueueBlocks >= 2 * kMaxGopFrames);
// Frames that wait for a recording's disk.
constexpr size_t kRecordingQueueBytes = 64u << 20;
// Frames that wait for the relay's servers, and messages that went to them and were not confirmed yet: together the
// time that a cluster may need to choose a new leader (some 10 s).
constexpr size_t kRelayQueueBytes = 64u << 20;
constexpr size_t kRelayWindowBytes = 16u << 20;
// What the relay's servers keep of each stream, so that an edge that was cut off misses nothing.
constexpr std::chrono::seconds kRelayKeeps{60};
constexpr size_t kRelayKeepsBytes = 64u << 20;
// Pieces of one frame, and its bytes.
constexpr uint32_t kMaxRelayPieces = 4096;
constexpr size_t kMaxRelayFrame = 64u << 20;
// Messages that wait at an edge for one that is missing, and how long.
constexpr size_t kMaxRelayWaiting = 4096;
constexpr size_t kMaxRelayWaitingBytes = 64u << 20;
constexpr std::chrono::seconds kRelayMissing{20};
// Of two origins the one that began later is followed, and the other one when that one is silent for so long.
constexpr std::chrono::seconds kOriginSilence{2};
// A client that took nothing for so long while something was there for it is closed.
constexpr std::chrono::seconds kStalledFor{10};
// So is one that takes less than this a second all that time: less than any picture needs.
constexpr uint64_t kLeastBytesPerSecond = 4096;
// Sound waits so long for the next picture, so that both go out in one write.
constexpr std::chrono::milliseconds kSoundWaits{25};
// A write costs the system much the same whatever its length. So a thread with more connections than these collects for
// each of them what comes, longer the more they are, up to --collect or until it is so much that more would bring
// nothing.
constexpr size_t kCollectFrom = 16;
constexpr std::chrono::milliseconds kCollectForEach{5};
constexpr std::chrono::milliseconds kDefaultCollect{500};
constexpr std::chrono::milliseconds kLongestCollect{500};
constexpr size_t kCollectBytes = 256u << 10;
// Memory that endless outputs are sent from comes in pieces of this size, which are given back as a whole.
constexpr size_t kSharedPagesBytes = 2u << 20;
// What is shorter is copied into a socket: that costs less than lending its pages. And how much is lent in one call.
constexpr size_t kLendFrom = 8u << 10;
constexpr size_t kLaneBytes = 512u << 10;
// What the system may hold, beyond what is on its way, for a client that has not taken as much yet: the rest waits
// here, where it is the same bytes for everybody. A client that takes nothing is a list of small packets there, each
// with its price.
constexpr size_t kMaxUnsentBytes = 128u << 10;
// Buffers in one vectored write; with what frames them not more than Asio hands to the system at once (64).
constexpr size_t kMaxBuffersPerWrite = 62;

// Requests.
constexpr size_t kMaxHeaderBytes = 8192;
constexpr size_t kMaxBodyBytes = 16384;
constexpr size_t kMaxTargetBytes = 2048;
// From the first byte of a request, or from the end of the one before, to its last byte.
constexpr std::chrono::seconds kRequestTakes{10};
// A longest segment, and how many of them a request waits at most for what comes next.
constexpr std::chrono::seconds kLongestSegment{20};
constexpr int kSegmentsOfPatience = 3;
// For the gateway to have an answer: more than it waits for a segment.
constexpr std::chrono::seconds kAnswerComes = kLongestSegment * kSegmentsOfPatience + std::chrono::seconds(10);
// For a client to take a whole answer, and for a handshake.
constexpr std::chrono::seconds kAnswerTakes{30};
constexpr std::chrono::seconds kHandshakeTakes{10};
// A message that a WebSocket client may send: it has nothing to say but ping and close.
constexpr size_t kMaxWebSocketMessage = 1024;
constexpr size_t kDefaultMaxClients = 10000;
constexpr size_t kMaxStreams = 1000;
constexpr size_t kMaxStreamName = 64;

// An input that gives nothing for so long is opened again, after a pause that doubles.
constexpr std::chrono::seconds kInputSilence{10};
constexpr std::chrono::milliseconds kFirstPause{250};
constexpr std::chrono::milliseconds kLongestPause{10000};
// A relay answers with a word, so it is asked more often.
constexpr std::chrono::milliseconds kLongestRelayPause{1000};

}  // namespace Orvane::Muxora::Gateway
