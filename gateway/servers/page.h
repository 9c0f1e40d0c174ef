// The files of the page, read once at the start: no path of a client ever reaches the file system.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "protocols/request.h"

namespace Orvane::Muxora::Gateway {

class Page {
  public:
    // Reads the files of the folder that are known by name; what is missing is not served.
    explicit Page(const std::string& folder);

    std::optional<Reply> Find(const std::string& path) const;

  private:
    std::map<std::string, Reply> files_;
};

}  // namespace Orvane::Muxora::Gateway
