// The formats: numbers, keys and what makes each. The one place that knows every packager.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "MuxoraAPI.h"
#include "core/package.h"

namespace Orvane::Muxora {

// By number, for the C interface. Null for unknown numbers and for those that only the file component makes.
std::unique_ptr<CPackage> MakePackage(uint32_t format, const MXCreateParam* param);

// By key, exact and case-sensitive, for the components. Null for unknown keys.
std::unique_ptr<CPackage> MakeStreamPackage(std::string_view key);
std::unique_ptr<CPackage> MakeFilePackage(std::string_view key);

// Would the two above make one?
bool HasStreamPackage(std::string_view key);
bool HasFilePackage(std::string_view key);

}  // namespace Orvane::Muxora
