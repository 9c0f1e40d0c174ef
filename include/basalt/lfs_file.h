#pragma once

#include <cstddef>
#include <cstdint>

#include "basalt/export.h"

namespace Basalt {

/** How CLfsFile::open opens: flags, to be joined. */
enum LfsMode {
    LFS_WRITE = 0x0001,  /**< For writing. */
    LFS_BINARY = 0x0080, /**< Bytes go out as they are; no other way exists here. */
    LFS_CREATE = 0x1000  /**< Makes the file, or empties one that is there. */
};

/** What CLfsFile::seek counts from. */
enum LfsOrigin {
    LFS_FROM_START = 0,  /**< The beginning of the file. */
    LFS_FROM_CURRENT = 1 /**< The current position. */
};

/**
 * A file for output of any size.
 *
 * It keeps its position itself and writes each block with one positioned call of the system and no buffer of its own,
 * so that a process that crashes loses nothing of what it handed over. A target without positions (a pipe, a terminal)
 * takes the bytes one behind the other, as long as no seek leaves that order. A full disk, a file at the limit of its
 * size (RLIMIT_FSIZE) and a reader that went away show as a short write and never as a signal.
 *
 * Not copyable; one thread at a time.
 */
class BASALT_API CLfsFile {
  public:
    CLfsFile();
    /** Closes. */
    ~CLfsFile();
    CLfsFile(const CLfsFile&) = delete;
    CLfsFile& operator=(const CLfsFile&) = delete;

    /** Opens `path` (UTF-8 on Windows, of any length there) with LfsMode flags, LFS_WRITE among them; position 0.
     * Others may read the file meanwhile. A file that was open is closed before.
     *  @return False if the system refuses, or the mode does not write. */
    bool open(const char* path, uint32_t mode);
    /** Closes. @return False if the system reported an error; true on a closed file. */
    bool close();
    bool isOpen() const; /**< Is there a file? */
    /** Moves the position, also past the end. @return False on a closed file, for an unknown origin, and for a position
     *  below 0 or beyond 63 bits; the position then stays. */
    bool seek(int64_t offset, uint32_t origin);
    /** Writes at the position, which moves on by what was written.
     *  @return The number of bytes written; below `length` when the target took no more. */
    size_t write(const void* data, size_t length);

  private:
    intptr_t file_ = -1;       // the system's descriptor or handle
    bool positioned_ = false;  // the target has positions
    int64_t position_ = 0;
    int64_t streamed_ = 0;  // bytes that a target without positions has taken
};

}  // namespace Basalt
