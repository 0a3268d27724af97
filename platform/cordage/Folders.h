// Folder creation and file listing.
#pragma once

#include <cstdint>

namespace tarnvel {

constexpr int kCreateFolderFailed = 2;

// Makes the folder and those above it as far as needed; an existing folder is
// left alone. Returns 0, or kCreateFolderFailed when the folder could not be made.
int CgCreateNewDirectory(const char* path);

// Claims a folder that nobody else has: makes it only when nothing of that
// name exists, in one step of the file system (mkdir, atomic on local and
// network file systems alike), so that processes on several machines that
// pick numbered names in one shared folder never end up with the same one.
// The parent must exist.
enum class FolderClaim { Claimed, Taken, Failed };
FolderClaim ClaimNewDirectory(const char* path);

// Lists the regular files of `folder` whose extension is one of `extensions`
// (a list closed by a null entry, compared without regard to case, with or
// without the leading point), in name order. `text` is unused and may be empty.
// With a null buffer returns the bytes that the names need, terminators
// included; with a buffer fills it with zero-terminated names one behind the
// other, as many whole names as fit, and returns how many it wrote.
int CgEnumFiles(const char* folder, const char* text, const char* const* extensions, char* buffer,
                std::uint32_t bufferSize);

}  // namespace tarnvel
