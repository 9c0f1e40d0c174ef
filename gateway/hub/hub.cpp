#include "hub/hub.h"

#include <utility>

#include "bounds.h"

namespace Orvane::Muxora::Gateway {

StreamPtr Hub::Add(const std::string& name, const std::string& input) {
    std::vector<Greeting> greetings;
    StreamPtr stream;
    {
        const std::lock_guard lock(mutex_);
        if (streams_.count(name) != 0 || streams_.size() >= kMaxStreams) return nullptr;
        stream = std::make_shared<Stream>(name, input, workers_.Next());
        streams_.emplace(name, stream);
        greetings = greetings_;
    }
    for (const Greeting& greeting : greetings)
        greeting(stream);
    return stream;
}

StreamPtr Hub::Find(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    const auto found = streams_.find(name);
    return found != streams_.end() ? found->second : nullptr;
}

StreamPtr Hub::Remove(const std::string& name) {
    StreamPtr stream;
    {
        const std::lock_guard lock(mutex_);
        const auto found = streams_.find(name);
        if (found == streams_.end()) return nullptr;
        stream = std::move(found->second);
        streams_.erase(found);
    }
    stream->End();
    return stream;
}

std::vector<StreamPtr> Hub::All() const {
    const std::lock_guard lock(mutex_);
    std::vector<StreamPtr> all;
    for (const auto& [name, stream] : streams_)
        all.push_back(stream);
    return all;
}

void Hub::Greet(Greeting greeting) {
    const std::lock_guard lock(mutex_);
    greetings_.push_back(std::move(greeting));
}

}  // namespace Orvane::Muxora::Gateway
