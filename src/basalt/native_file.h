// What CLfsFile asks of the system: one unit a system, all with the same answers.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Basalt::NativeFile {

// A descriptor, or a handle's value.
using Handle = intptr_t;
constexpr Handle kClosed = -1;

// Opens a file for writing; `path` is UTF-8 where the system's own names are not bytes. With `create` a file that is
// missing is made and one that is there is emptied. kClosed if the system refuses.
Handle Open(const char* path, bool create);

// False if the system reported an error; the handle is gone all the same.
bool Close(Handle file);

// False for a pipe, a terminal, and what else takes bytes in their order alone.
bool HasPositions(Handle file);

// Write until all is written or the system takes no more, and give the number of bytes written. No failure is a signal.
size_t WriteAt(Handle file, const uint8_t* data, size_t length, int64_t position);
size_t WriteNext(Handle file, const uint8_t* data, size_t length);

}  // namespace Basalt::NativeFile
