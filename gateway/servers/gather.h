// A vectored write in progress: buffers of several owners, written as they stand.
#pragma once

#include <boost/asio/buffer.hpp>
#include <cstddef>
#include <vector>

namespace Orvane::Muxora::Gateway {

// What is left of the write, as Asio wants it: cheap to copy.
struct BufferView {
    using value_type = boost::asio::const_buffer;
    using const_iterator = const boost::asio::const_buffer*;

    const_iterator first = nullptr;
    const_iterator last = nullptr;

    const_iterator begin() const { return first; }
    const_iterator end() const { return last; }
};

class Gather {
  public:
    void Clear() {
        buffers_.clear();
        done_ = 0;
    }
    void Add(const void* data, size_t size) {
        if (size != 0) buffers_.emplace_back(data, size);
    }
    bool Done() const { return done_ == buffers_.size(); }
    BufferView Rest() const { return {buffers_.data() + done_, buffers_.data() + buffers_.size()}; }
    void Advance(size_t written) {
        while (written != 0 && done_ < buffers_.size()) {
            auto& front = buffers_[done_];
            if (written < front.size()) {
                front += written;
                return;
            }
            written -= front.size();
            ++done_;
        }
    }

  private:
    std::vector<boost::asio::const_buffer> buffers_;
    size_t done_ = 0;
};

}  // namespace Orvane::Muxora::Gateway
