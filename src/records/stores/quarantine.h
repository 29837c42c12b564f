// Moves what could not be read to a name with the date, before anything replaces it. Blocks; any
// thread.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/files/files.h"
#include "platform/values/date.h"

namespace vantrell::quarantine {

/// How files are named that hold such conversations.
inline constexpr std::string_view unreadable = "conversations that could not be read";

/// Writes a new owner-only file under a `files::datedName` and answers its path.
files::Result<std::string> write(const std::string& folder, std::string_view what, Date now,
                                 std::string_view content);
/// Before a save replaces a file that could not be read: moves that file and tells the user where
/// it is and why. Succeeds when the file is gone; after an error nothing may be written there.
files::Result<> moveFile(const std::string& path, std::string_view reason, Date now,
                         const std::function<void(const std::string&)>& notice);
/// Moves an SQLite file with its log and answers its new path. The log first: without it the file
/// would still be found damaged.
files::Result<std::string> moveDatabase(const std::string& path, std::string_view what, Date now);
/// A copy of an SQLite file and its log that may be opened and changed: one that was cut short gets
/// its length back, in zeros, since SQLite opens no other.
files::Result<> copyForReading(const std::string& from, const std::string& to);

}  // namespace vantrell::quarantine
