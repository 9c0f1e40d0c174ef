#include "hub/workers.h"

#include <algorithm>
#include <csignal>

namespace Orvane::Muxora::Gateway {

namespace {

constexpr std::chrono::milliseconds kSweepEvery{500};

}  // namespace

Worker::Worker(size_t index) : index_(index), work_(context_.get_executor()), sweep_(context_), next_(watched_.end()) {
    Sweep();
}

Worker::Watch Worker::Look(Guarded& guarded) {
    return watched_.insert(watched_.end(), &guarded);
}

void Worker::Forget(Watch watch) {
    // An expired one may take others with it while the sweep stands at them.
    if (next_ == watch) ++next_;
    watched_.erase(watch);
}

void Worker::Sweep() {
    const auto now = Guarded::Clock::now();
    for (next_ = watched_.begin(); next_ != watched_.end();) {
        Guarded* guarded = *next_;
        ++next_;
        if (guarded->deadline_ <= now) guarded->Expired();
    }
    next_ = watched_.end();
    sweep_.expires_after(kSweepEvery);
    sweep_.async_wait([this](const boost::system::error_code& error) {
        if (!error) Sweep();
    });
}

void Worker::CloseAll() {
    sweep_.cancel();
    for (next_ = watched_.begin(); next_ != watched_.end();) {
        Guarded* guarded = *next_;
        ++next_;
        guarded->Expired();
    }
    next_ = watched_.end();
}

Workers::Workers(size_t count) {
    // Who writes to a client that is gone is told by the call: no signal for the process.
    std::signal(SIGPIPE, SIG_IGN);
    for (size_t i = 0; i < std::max<size_t>(count, 1); ++i)
        workers_.push_back(std::make_unique<Worker>(i));
}

Workers::~Workers() {
    Stop();
}

void Workers::Start() {
    for (const auto& worker : workers_)
        worker->thread_ = std::thread([&context = worker->context_] { context.run(); });
}

void Workers::Stop() {
    for (const auto& worker : workers_)
        worker->context_.stop();
    bool ran = false;
    for (const auto& worker : workers_) {
        if (!worker->thread_.joinable()) continue;
        worker->thread_.join();
        ran = true;
    }
    // The second time, what handlers lean on may be gone.
    if (!ran) return;
    for (const auto& worker : workers_)
        worker->CloseAll();
    constexpr int kRounds = 1000;
    bool any = true;
    for (int round = 0; any && round < kRounds; ++round) {
        any = false;
        for (const auto& worker : workers_) {
            worker->context_.restart();
            if (worker->context_.poll() != 0) any = true;
        }
    }
    // A handler that still waits, as that of a WebSocket whose client does not answer the end, may hold timers of
    // another worker, which is destroyed before its own.
    for (const auto& worker : workers_)
        worker->context_.DropHandlers();
}

}  // namespace Orvane::Muxora::Gateway
