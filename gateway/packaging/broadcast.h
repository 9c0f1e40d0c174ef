// One stream in one form, for everybody: packed once on the stream's thread, handed out on every worker's thread.
#pragma once

#include <atomic>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_set>
#include <vector>

#include "hub/block.h"
#include "hub/stream.h"
#include "packaging/forms.h"
#include "packaging/packager.h"

namespace Orvane::Muxora::Gateway {

// What a worker's clients are served from: the head, and the blocks since the last key frame. It lives on that worker's
// thread, and only Deliver is called on the stream's.
class Outlet : public std::enable_shared_from_this<Outlet> {
  public:
    // `collect`: see kCollectFrom; 0: everything goes out as it comes.
    Outlet(Worker& worker, bool first_header_stays, std::chrono::milliseconds collect);

    // The worker is woken only where somebody should get the block before the worker looks by itself.
    void Deliver(const BlockPtr& block);
    void End();

    // The receiver gets the head and the current group of pictures at once, if it has room for them.
    void Join(const std::shared_ptr<BlockReceiver>& receiver);
    void Leave(const std::shared_ptr<BlockReceiver>& receiver);

  private:
    std::chrono::milliseconds Collects() const;
    std::chrono::milliseconds Waits() const;
    void Keep(const BlockPtr& block);
    // Takes what was delivered.
    void Fetch();
    void Look();
    void LookAfter(std::chrono::milliseconds wait);
    void Flush();
    // The worker comes and looks without being told, in its time; or it has to be told of each block.
    void LooksByItself(bool does);

    Worker& worker_;
    const bool first_header_stays_;
    const std::chrono::milliseconds collect_;
    std::mutex mutex_;
    std::vector<BlockPtr> delivered_;
    size_t delivered_bytes_ = 0;
    bool looks_by_itself_ = true;  // nobody is here yet
    bool told_ = false;            // to look
    // The rest is the worker's thread's.
    std::vector<BlockPtr> collected_;  // for everybody here, and not given out yet
    size_t collected_bytes_ = 0;
    std::vector<BlockPtr> head_;  // a header may come in several blocks
    bool head_open_ = true;       // the next header block goes on with it
    std::deque<BlockPtr> gop_;
    size_t gop_bytes_ = 0;
    std::unordered_set<std::shared_ptr<BlockReceiver>> receivers_;
    boost::asio::steady_timer look_;
    bool look_waits_ = false;
    bool ended_ = false;
};

class Broadcast : public FrameSink, public std::enable_shared_from_this<Broadcast> {
  public:
    // Null when the library does not make the format.
    static std::shared_ptr<Broadcast> Make(Workers& workers, const StreamPtr& stream, const Form& form,
                                           std::chrono::milliseconds collect = std::chrono::milliseconds(0));

    const Form& Shape() const { return form_; }
    const StreamPtr& Source() const { return stream_; }

    // On `worker`'s thread.
    void Join(Worker& worker, const std::shared_ptr<BlockReceiver>& receiver);
    void Leave(Worker& worker, const std::shared_ptr<BlockReceiver>& receiver);

    size_t Clients() const { return clients_; }
    uint64_t Sent() const { return sent_; }
    uint64_t Skipped() const { return skipped_; }
    void CountSent(uint64_t bytes) { sent_ += bytes; }
    void CountSkip() { ++skipped_; }

    void OnFrame(const FramePtr& frame) override;
    void OnEnd() override;

  private:
    Broadcast(Workers& workers, StreamPtr stream, const Form& form, std::chrono::milliseconds collect);
    void Publish(const BlockPtr& block);

    Workers& workers_;
    StreamPtr stream_;
    const Form& form_;
    std::unique_ptr<FramePacker> packager_;
    std::vector<std::shared_ptr<Outlet>> outlets_;
    std::atomic<size_t> clients_{0};
    std::atomic<uint64_t> sent_{0};
    std::atomic<uint64_t> skipped_{0};
};

}  // namespace Orvane::Muxora::Gateway
