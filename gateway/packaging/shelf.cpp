#include "packaging/shelf.h"

namespace Orvane::Muxora::Gateway {

std::shared_ptr<Broadcast> Shelf::Get(const StreamPtr& stream, const Form& form) {
    const std::lock_guard lock(mutex_);
    // It was dropped, or is about to be: who came too late hears of the end from an output that nobody keeps.
    if (stream->Removed()) return Make(stream, form);
    auto& place = outputs_[stream.get()][&form];
    if (place == nullptr) place = Make(stream, form);
    return place;
}

std::vector<std::shared_ptr<Broadcast>> Shelf::Of(const Stream& stream) const {
    std::vector<std::shared_ptr<Broadcast>> all;
    const std::lock_guard lock(mutex_);
    const auto found = outputs_.find(&stream);
    if (found == outputs_.end()) return all;
    for (const auto& [form, output] : found->second) {
        if (output != nullptr) all.push_back(output);
    }
    return all;
}

// Packets go out at the pace of the stream: receivers over UDP have no more room than that.
std::shared_ptr<Broadcast> Shelf::Make(const StreamPtr& stream, const Form& form) const {
    return Broadcast::Make(workers_, stream, form, &form == &kRtpForm ? std::chrono::milliseconds(0) : collect_);
}

void Shelf::Drop(const Stream& stream) {
    const std::lock_guard lock(mutex_);
    outputs_.erase(&stream);
}

}  // namespace Orvane::Muxora::Gateway
