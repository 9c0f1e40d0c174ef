// Takes on every stream that is published, those that come later as well; each once, so that one that was removed at
// this gateway stays away.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>

namespace Orvane::Muxora::Gateway {

class NatsLink;

class RelayFinder {
  public:
    // On this object's thread; false: not now.
    using Add = std::function<bool(const std::string& name)>;
    RelayFinder(std::shared_ptr<NatsLink> link, Add add);
    ~RelayFinder();
    RelayFinder(const RelayFinder&) = delete;
    RelayFinder& operator=(const RelayFinder&) = delete;

  private:
    void Run();
    void Look();

    const std::shared_ptr<NatsLink> link_;
    const Add add_;
    std::set<std::string> taken_;
    std::atomic<bool> stopped_{false};
    std::thread thread_;
};

}  // namespace Orvane::Muxora::Gateway
