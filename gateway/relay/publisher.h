// Publishes a stream to the relay's servers: a sink of frames with a thread of its own, so that a cluster that is away
// holds up nobody.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "bounds.h"
#include "hub/frame_queue.h"
#include "hub/stream.h"
#include "relay/outbox.h"

namespace Orvane::Muxora::Gateway {

class NatsLink;

class RelayPublisher final : public FrameSink {
  public:
    RelayPublisher(StreamPtr stream, std::shared_ptr<NatsLink> link);
    ~RelayPublisher() override;

    void OnFrame(const FramePtr& frame) override;
    void OnEnd() override;

    // Waits until what was given is with the servers, or they did not answer for a moment.
    void Wait();

  private:
    class Line;
    struct Turn {
        FramePtr frame;     // may be null
        uint64_t lost = 0;  // frames that found no place so far
        bool last = false;  // the stream has ended, and nothing comes behind
    };
    void Run();
    Turn Next(const Line& line);

    const StreamPtr stream_;
    const std::shared_ptr<NatsLink> link_;

    std::mutex mutex_;
    std::condition_variable changed_;
    FrameQueue frames_{kRelayQueueBytes};
    bool ended_ = false;
    uint64_t lost_ = 0;
    std::thread thread_;
};

}  // namespace Orvane::Muxora::Gateway
