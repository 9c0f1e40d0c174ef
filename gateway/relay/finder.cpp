#include "relay/finder.h"

#include <chrono>
#include <utility>

#include "relay/nats.h"

namespace Orvane::Muxora::Gateway {

namespace {

constexpr std::chrono::milliseconds kStep{50};
constexpr int kStepsPerLook = 20;

}  // namespace

RelayFinder::RelayFinder(std::shared_ptr<NatsLink> link, Add add)
    : link_(std::move(link)), add_(std::move(add)), thread_([this] { Run(); }) {
}

RelayFinder::~RelayFinder() {
    stopped_ = true;
    thread_.join();
}

void RelayFinder::Run() {
    while (!stopped_) {
        if (link_->Connected()) Look();
        for (int step = 0; step < kStepsPerLook && !stopped_; ++step)
            std::this_thread::sleep_for(kStep);
    }
}

void RelayFinder::Look() {
    jsStreamNamesList* made = nullptr;
    auto code = jsErrCode{};
    const natsStatus status = js_StreamNames(&made, link_->JetStream(), nullptr, &code);
    const NatsPtr<jsStreamNamesList> list(made);
    if (status != NATS_OK) return;
    for (int i = 0; i < made->Count; ++i) {
        const std::string name = StreamOfStore(made->List[i]);
        if (!name.empty() && taken_.count(name) == 0 && add_(name)) taken_.insert(name);
    }
}

}  // namespace Orvane::Muxora::Gateway
