// What a file is, as far as its first bytes tell.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Orvane::Muxora::Tools {

enum class FileKind { kUnknown, kMp4, kMatroska, kFlv, kAvi, kWav, kAsf, kTransportStream, kProgramStream };

// So many bytes of a file are enough.
constexpr size_t kFileKindBytes = 512;

FileKind KindOf(std::span<const uint8_t> head);
// As a sentence has it: "a Matroska file".
std::string KindText(FileKind kind);

}  // namespace Orvane::Muxora::Tools
