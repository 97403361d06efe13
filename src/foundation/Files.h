#pragma once

#include <string>
#include <string_view>

#include "foundation/Error.h"

namespace vornex {

/// Whether anything (a dangling symbolic link included) is at the path.
bool itemExists(const std::string& path);
/// Whether the path leads to something, links followed.
bool fileExists(const std::string& path);
bool isDirectory(const std::string& path);

/// The whole content; domain "posix". Files over `limit` bytes are refused with EFBIG.
[[nodiscard]] Result<std::string> readFile(const std::string& path, std::size_t limit = std::size_t{1} << 30);
/// What is left to read of an open file; the path is for messages.
[[nodiscard]] Result<std::string> readFile(int file, const std::string& path,
                                           std::size_t limit = std::size_t{1} << 30);

/// Writes beside, fsyncs, renames over the target and fsyncs the folder: at every instant the path holds the
/// old content or the new one, whole. `mode` is the permission of a new file. Domain "posix".
[[nodiscard]] Result<void> writeFileAtomically(const std::string& path, std::string_view bytes,
                                               unsigned mode = 0644);

/// Whether a file name is one that `writeFileAtomically` gives to what it writes beside. After a crash such
/// files may be removed.
bool isUnfinishedWrite(std::string_view fileName);

/// Makes the folder and the missing ones above it, durably. A folder that exists is a success.
[[nodiscard]] Result<void> createDirectories(const std::string& path, unsigned mode = 0755);

/// Flushes a folder's entries to disk.
[[nodiscard]] Result<void> syncDirectory(const std::string& path);

// Paths as text: separators collapse where components meet.

std::string appendPathComponent(std::string_view path, std::string_view component);
/// The last component, "" for the root.
std::string lastPathComponent(std::string_view path);
std::string deletingLastPathComponent(std::string_view path);
/// Without the dot; "" when there is none, and for names like ".profile".
std::string pathExtension(std::string_view path);
std::string deletingPathExtension(std::string_view path);

}  // namespace vornex
