// muxora repair: completes a killed MP4 or MOV recording from its last snapshot, and a hybrid MP4 from itself.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "MuxoraExt.h"
#include "common/file_kind.h"
#include "common/file_lock.h"
#include "common/format_list.h"
#include "common/json.h"
#include "muxora/command.h"
#include "muxora/snapshot.h"

namespace Orvane::Muxora::Tools {

namespace {

uint64_t BigEndian(const uint8_t* at, int bytes) {
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i)
        value = value << 8 | at[i];
    return value;
}

struct Box {
    uint64_t at = 0;
    uint64_t size = 0;  // as the header says
    uint32_t header = 8;
    std::array<char, 4> type{};

    bool Is(const char* name) const { return std::memcmp(type.data(), name, 4) == 0; }
};

class RecordingFile {
  public:
    RecordingFile(const std::string& path, int flags)
        : path_(path), descriptor_(open(path.c_str(), flags | O_CLOEXEC)) {
        if (descriptor_ < 0) throw Failure("cannot open " + path_ + ": " + std::strerror(errno));
        if (TryLock(descriptor_)) return;
        const std::string holder = HolderOf(descriptor_);
        close(descriptor_);
        throw Failure(path_ + " is still being written by " + holder + "; there is nothing to repair before its end");
    }
    ~RecordingFile() { close(descriptor_); }
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    uint64_t Size() const {
        struct stat status {};
        if (fstat(descriptor_, &status) != 0) Fail("read");
        return static_cast<uint64_t>(status.st_size);
    }

    // ISO/IEC 14496-12 4.2: size, type, and the large size where the size is 1.
    std::optional<Box> BoxAt(uint64_t at) const {
        uint8_t bytes[16] = {};
        const ssize_t got = pread(descriptor_, bytes, sizeof bytes, static_cast<off_t>(at));
        if (got < 8) return std::nullopt;
        Box box;
        box.at = at;
        box.size = BigEndian(bytes, 4);
        std::memcpy(box.type.data(), bytes + 4, 4);
        if (box.size == 1) {
            if (got < 16) return std::nullopt;
            box.header = 16;
            box.size = BigEndian(bytes + 8, 8);
        }
        return box;
    }

    void Read(uint64_t at, void* data, size_t size) const {
        auto* bytes = static_cast<uint8_t*>(data);
        while (size != 0) {
            const ssize_t got = pread(descriptor_, bytes, size, static_cast<off_t>(at));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) Fail("read");
            bytes += got;
            at += static_cast<uint64_t>(got);
            size -= static_cast<size_t>(got);
        }
    }

    void Write(uint64_t at, const void* data, size_t size) {
        const auto* bytes = static_cast<const uint8_t*>(data);
        while (size != 0) {
            const ssize_t written = pwrite(descriptor_, bytes, size, static_cast<off_t>(at));
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) Fail("write");
            bytes += written;
            at += static_cast<uint64_t>(written);
            size -= static_cast<size_t>(written);
        }
    }

    void Cut(uint64_t size) {
        if (ftruncate(descriptor_, static_cast<off_t>(size)) != 0) Fail("cut");
    }
    void Flush() {
        if (fsync(descriptor_) != 0) Fail("write");
    }

  private:
    [[noreturn]] void Fail(const char* verb) const {
        throw Failure(std::string("cannot ") + verb + " " + path_ + ": " + std::strerror(errno));
    }

    std::string path_;
    int descriptor_;
};

struct Layout {
    std::optional<Box> mdat;
    std::optional<Box> front_moov;  // in the reserved gap
    bool complete = false;          // the boxes fill the file, and there is an index
};

Layout ReadLayout(const RecordingFile& file, uint64_t size) {
    Layout layout;
    bool moov = false;
    uint64_t at = 0;
    while (at < size) {
        const std::optional<Box> box = file.BoxAt(at);
        if (!box || box->size < box->header || box->size > size - at) break;
        if (box->Is("mdat") && !layout.mdat) layout.mdat = box;
        if (box->Is("moov")) {
            moov = true;
            if (!layout.mdat) layout.front_moov = box;
        }
        at += box->size;
    }
    layout.complete = moov && at == size && layout.mdat.has_value();
    return layout;
}

void PutBigEndian(uint8_t* at, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        at[i] = static_cast<uint8_t>(value >> 8 * (bytes - 1 - i) & 0xFF);
}

// Ahead of the first change to the file.
void CheckMediaSize(const std::string& path, const Snapshot& snapshot, const Box& mdat) {
    if (snapshot.format == MX_FORMAT_MP4_NOSEEK || mdat.header == 16 || snapshot.position - mdat.at <= UINT32_MAX)
        return;
    throw Failure("the media data of " + path + " is longer than this file can say");
}

// The header of the one mdat box; the forward-only form has finished boxes.
void PatchMediaSize(RecordingFile& file, const Snapshot& snapshot, const Box& mdat) {
    if (snapshot.format == MX_FORMAT_MP4_NOSEEK) return;
    const uint64_t size = snapshot.position - mdat.at;
    uint8_t bytes[8];
    if (mdat.header == 16) {
        PutBigEndian(bytes, size, 8);
        file.Write(mdat.at + 8, bytes, 8);
    } else {
        PutBigEndian(bytes, size, 4);
        file.Write(mdat.at, bytes, 4);
    }
}

struct RepairArguments {
    std::string path;
    bool quiet = false;
    bool json = false;
};

// For calls by the library, which takes a number.
template <typename Work>
uint32_t Try(Work work) noexcept {
    try {
        work();
        return 0;
    } catch (...) {
        return 1;
    }
}

void Report(const RepairArguments& arguments, const std::string& state, uint64_t bytes, uint64_t cut,
            const char* behind) {
    if (arguments.json) {
        const Json json{{"file", arguments.path}, {"state", state}, {"bytes", bytes}, {"cut", cut}};
        std::printf("%s\n", JsonLine(json).c_str());
    } else if (!arguments.quiet && state == "complete") {
        std::printf("%s is complete; there is nothing to repair\n", arguments.path.c_str());
    } else if (!arguments.quiet) {
        std::printf("%s: completed, %" PRIu64 " bytes; %" PRIu64 " bytes behind the last %s are cut off\n",
                    arguments.path.c_str(), bytes, cut, behind);
    }
}

// A hybrid MP4 needs no snapshot: its fragments tell everything. False if the file is something else.
bool RepairHybrid(const RepairArguments& arguments, RecordingFile& file, uint64_t size) {
    MXHybridFile access{};
    access.size = sizeof access;
    access.user = &file;
    access.length = size;
    access.read = [](void* user, uint64_t position, void* data, uint32_t length) {
        return Try([&] { static_cast<RecordingFile*>(user)->Read(position, data, length); });
    };
    access.write = [](void* user, uint64_t position, const void* data, uint32_t length) {
        return Try([&] { static_cast<RecordingFile*>(user)->Write(position, data, length); });
    };
    access.cut = [](void* user, uint64_t length) {
        return Try([&] {
            static_cast<RecordingFile*>(user)->Cut(length);
            static_cast<RecordingFile*>(user)->Flush();
        });
    };
    MXHybridRepair repair{};
    repair.size = sizeof repair;
    if (MX_RepairHybrid(&access, &repair) == MX_NO_RESOURCES) throw Failure("out of memory");
    if (repair.state == MX_HYBRID_OTHER) return false;
    if (repair.state != MX_HYBRID_REPAIRED) {
        throw Failure("cannot repair " + arguments.path + ": " + repair.message + ", at byte " +
                      std::to_string(repair.position));
    }
    file.Flush();
    Report(arguments, "repaired", repair.length, size - repair.media_end, "fragment");
    return true;
}

// Only MP4 and MOV are worthless without the end that a killed process did not write.
void CheckKind(const RepairArguments& arguments, const RecordingFile& file, uint64_t size) {
    std::vector<uint8_t> head(std::min<uint64_t>(size, kFileKindBytes));
    file.Read(0, head.data(), head.size());
    const FileKind kind = KindOf(head);
    if (kind == FileKind::kMp4) return;
    const bool mp4_name = arguments.path.ends_with(".mp4") || arguments.path.ends_with(".mov");
    if (kind == FileKind::kUnknown && mp4_name) return;
    const std::string text = arguments.path + " is " + KindText(kind) + ", and repair completes MP4 and MOV alone";
    switch (kind) {
        case FileKind::kTransportStream:
        case FileKind::kProgramStream:
            throw Failure(text + ": this plays as far as it was written, and lacks nothing");
        case FileKind::kUnknown:
            throw Failure(text);
        default:
            throw Failure(text +
                          ": 'muxora pack' reads this as far as it was written, and writes a whole file, in which "
                          "players can seek, under another name");
    }
}

void Repair(const RepairArguments& arguments) {
    const std::string snapshot_path = SnapshotPath(arguments.path);
    RecordingFile file(arguments.path, O_RDWR);
    const uint64_t size = file.Size();
    if (RepairHybrid(arguments, file, size)) return;
    const Layout layout = ReadLayout(file, size);
    const std::optional<Snapshot> snapshot = ReadSnapshot(snapshot_path);
    if (!layout.complete && !snapshot) CheckKind(arguments, file, size);
    if (layout.complete) {
        // Killed between the last byte and the removal of the snapshot, or repaired before.
        RemoveSnapshot(snapshot_path);
        Report(arguments, "complete", size, 0, "");
        return;
    }
    if (!snapshot) {
        throw Failure(arguments.path + " has no index, and there is no " + snapshot_path +
                      ": the index was lost with the process; record with --backup SECONDS to keep one");
    }
    if (!layout.mdat) throw Failure(arguments.path + " has no media data in front; is it an MP4 or MOV recording?");
    if (snapshot->position > size || snapshot->position < layout.mdat->at + layout.mdat->header) {
        throw Failure(snapshot_path + " belongs to another recording: it describes " +
                      std::to_string(snapshot->position) + " bytes, " + arguments.path + " has " +
                      std::to_string(size));
    }
    CheckMediaSize(arguments.path, *snapshot, *layout.mdat);
    // The order lets a second run finish what a first one began: the snapshot goes last.
    if (layout.front_moov) file.Write(layout.front_moov->at + 4, "free", 4);
    file.Write(snapshot->position, snapshot->index.data(), snapshot->index.size());
    const uint64_t end = snapshot->position + snapshot->index.size();
    file.Cut(end);
    file.Flush();
    PatchMediaSize(file, *snapshot, *layout.mdat);
    file.Flush();
    RemoveSnapshot(snapshot_path);
    Report(arguments, "repaired", end, size - snapshot->position, "snapshot");
}

}  // namespace

void AddRepair(CLI::App& app) {
    CLI::App* command = app.add_subcommand("repair", "Complete a killed MP4 or MOV recording");
    auto arguments = std::make_shared<RepairArguments>();
    command
        ->add_option("FILE", arguments->path,
                     "The recording; its snapshot, which a hybrid MP4 does without, is FILE.snapshot")
        ->required();
    command->add_flag("--quiet", arguments->quiet, "Say nothing");
    command->add_flag("--json", arguments->json, "Print JSON");
    command->footer(
        "Example:\n"
        "  muxora pack rtsp://camera/1 -o recording.mp4 --realtime --backup 1    (killed)\n"
        "  muxora repair recording.mp4");
    command->callback([arguments] { Repair(*arguments); });
}

}  // namespace Orvane::Muxora::Tools
