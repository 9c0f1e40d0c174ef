// All streams of the gateway by name.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "hub/stream.h"
#include "hub/stream_name.h"

namespace Orvane::Muxora::Gateway {

class Hub {
  public:
    explicit Hub(Workers& workers) : workers_(workers) {}

    Workers& Threads() { return workers_; }

    // All on any thread.

    // Null when there is a stream of that name, or too many.
    StreamPtr Add(const std::string& name, const std::string& input);
    // Null when there is none.
    StreamPtr Find(const std::string& name) const;
    // Takes the stream out and ends it; null when there is none.
    StreamPtr Remove(const std::string& name);
    std::vector<StreamPtr> All() const;

    // Called for every stream that is added from now on, on the thread that adds it: recorders and relays attach here.
    using Greeting = std::function<void(const StreamPtr&)>;
    void Greet(Greeting greeting);

  private:
    Workers& workers_;
    mutable std::mutex mutex_;
    std::map<std::string, StreamPtr> streams_;
    std::vector<Greeting> greetings_;
};

}  // namespace Orvane::Muxora::Gateway
