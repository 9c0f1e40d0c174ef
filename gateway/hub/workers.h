// The threads of the gateway: one io_context each, one a core. Everything is pinned to one of them.
#pragma once

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <list>
#include <memory>
#include <thread>
#include <vector>

namespace Orvane::Muxora::Gateway {

// Something with a deadline: a connection that must make progress. It lives on one worker's thread.
class Guarded {
  public:
    using Clock = std::chrono::steady_clock;

    // Progress was made; the next is due within `span`.
    void Expect(Clock::duration span) { deadline_ = Clock::now() + span; }
    void ExpectNothing() { deadline_ = Clock::time_point::max(); }

  protected:
    ~Guarded() = default;

  private:
    friend class Worker;
    // The deadline has passed.
    virtual void Expired() = 0;

    Clock::time_point deadline_ = Clock::time_point::max();
};

class Worker {
  private:
    struct WorkerContext : boost::asio::io_context {
        WorkerContext() : io_context(1) {}
        // Destroys the handlers that wait, and leaves the context standing for what outlives them.
        void DropHandlers() { shutdown(); }
    };

  public:
    explicit Worker(size_t index);
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    size_t Index() const { return index_; }
    boost::asio::io_context& Context() { return context_; }

    // On this worker's thread: a place in the list of those who are looked after; Forget gives it back.
    using Watch = std::list<Guarded*>::iterator;
    Watch Look(Guarded& guarded);
    void Forget(Watch watch);
    size_t Watched() const { return watched_.size(); }

  private:
    friend class Workers;
    void Sweep();
    // No thread runs it any more: closes every connection.
    void CloseAll();

    size_t index_;
    WorkerContext context_;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_;
    boost::asio::steady_timer sweep_;
    std::list<Guarded*> watched_;
    Watch next_;
    std::thread thread_;
};

class Workers {
  public:
    explicit Workers(size_t count);
    ~Workers();
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    void Start();
    // Ends the threads, then closes all connections, runs what that leaves to be done and destroys what still waits, on
    // the caller's thread. For good: what is posted afterwards is not run.
    void Stop();
    size_t Count() const { return workers_.size(); }
    Worker& At(size_t index) { return *workers_[index]; }
    // One after the other.
    Worker& Next() { return *workers_[next_++ % workers_.size()]; }

  private:
    std::vector<std::unique_ptr<Worker>> workers_;
    size_t next_ = 0;
};

}  // namespace Orvane::Muxora::Gateway
