// All outputs that are packed at present: one a stream and form, made when it is first asked for.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "packaging/broadcast.h"

namespace Orvane::Muxora::Gateway {

class Shelf {
  public:
    // `collect`: how long at most what goes to many clients is collected (kCollectFrom).
    explicit Shelf(Workers& workers, std::chrono::milliseconds collect = std::chrono::milliseconds(0))
        : workers_(workers), collect_(collect) {}

    // On any thread. Null when the library does not make the format.
    std::shared_ptr<Broadcast> Get(const StreamPtr& stream, const Form& form);
    // The outputs of a stream that exist.
    std::vector<std::shared_ptr<Broadcast>> Of(const Stream& stream) const;
    // The stream is gone: End() was called for it.
    void Drop(const Stream& stream);

  private:
    std::shared_ptr<Broadcast> Make(const StreamPtr& stream, const Form& form) const;

    Workers& workers_;
    const std::chrono::milliseconds collect_;
    mutable std::mutex mutex_;
    std::map<const Stream*, std::map<const Form*, std::shared_ptr<Broadcast>>> outputs_;
};

}  // namespace Orvane::Muxora::Gateway
