// A client of an endless stream over HTTP.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "packaging/broadcast.h"
#include "servers/block_queue.h"
#include "servers/gather.h"
#include "servers/http_session.h"
#include "servers/net_stream.h"

namespace Orvane::Muxora::Gateway {

// What all clients of a feed have in common: the queue, the rule for the slow, the way in and out.
class FeedMember : public Guarded, public BlockReceiver, public std::enable_shared_from_this<FeedMember> {
  public:
    FeedMember(const SessionPlace& place, ConnectionCount count, std::shared_ptr<Broadcast> feed);

    void Take(std::span<const BlockPtr> blocks) final;
    size_t Room() const final { return queue_.MaxBytes(); }
    void End() final;

  protected:
    ~FeedMember() override = default;

    void Enter();
    void Leave();
    bool Inside() const { return watch_.has_value(); }
    // A write that took longer than its call is done; goes on with what waits.
    void Written();

    // Writes `in_flight_`. True when that is done; otherwise Written() says so later, or the client left.
    virtual bool WriteBlocks() = 0;
    // Everything was written, and the stream is at its end.
    virtual void SayGoodbye() = 0;
    virtual NetStream& Connection() = 0;

    SessionPlace place_;
    std::vector<BlockPtr> in_flight_;

  private:
    void Expired() override;
    // Something waits for the client from now on.
    void Measure();
    void Skipped();
    void Stall();
    void LearnThatItReads();
    void WriteNext();
    void EndWrite();

    ConnectionCount count_;
    std::shared_ptr<Broadcast> feed_;
    BlockQueue queue_;
    std::optional<Worker::Watch> watch_;
    bool writing_ = true;  // the head comes first
    bool ending_ = false;
    bool stay_behind_ = false;
    bool measured_ = false;
    bool reads_ = false;             // it is known to
    std::optional<uint64_t> taken_;  // at the begin of the half of a stalled client's time that runs
    bool caught_up_ = true;          // since the last skip
    unsigned skips_ = 0;
    Clock::time_point last_skip_;
};

class FeedClient final : public FeedMember {
  public:
    FeedClient(const SessionPlace& place, NetStream stream, ConnectionCount count, std::shared_ptr<Broadcast> feed,
               bool chunked);

    // On the worker's thread.
    void Run(std::string head);

  private:
    std::shared_ptr<FeedClient> Self() { return std::static_pointer_cast<FeedClient>(shared_from_this()); }
    bool WriteBlocks() override;
    void SayGoodbye() override;
    NetStream& Connection() override { return stream_; }

    bool FindStretches();
    // True when all of `stretches_`, or of `gather_`, is gone; otherwise the rest goes when there is room.
    bool SendStretches();
    void WaitForRoom();
    bool Write();
    void WriteRest();
    void WatchForClose();

    NetStream stream_;
    bool chunked_;
    bool goodbye_ = false;
    std::string text_;  // the head, then the line in front of a chunk
    Gather gather_;
    std::vector<std::span<const uint8_t>> stretches_;  // what is left of the blocks' chunks
    std::array<char, 64> ignored_{};
};

}  // namespace Orvane::Muxora::Gateway
