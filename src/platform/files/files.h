// Files and folders. Every function blocks and may be called from any thread; the main queue calls
// only those that touch a few small files.
#pragma once

#include <expected>
#include <limits>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "platform/files/descriptor.h"
#include "platform/files/file_error.h"
#include "platform/values/date.h"

namespace vantrell::files {

/// The user's home folder: $HOME, else what the user database says.
std::string homeFolder();
// The base folders of XDG, not created. A relative value of the variable counts as unset, as XDG
// demands.

/// $XDG_DATA_HOME or ~/.local/share.
std::string dataFolder();
/// $XDG_CONFIG_HOME or ~/.config.
std::string configFolder();
/// $XDG_STATE_HOME or ~/.local/state.
std::string stateFolder();

/// $TMPDIR when that is absolute, else /tmp.
std::string temporaryFolder();

/// An absolute path without ".", ".." and doubled or trailing slashes, by text alone: symbolic
/// links are not resolved. A relative path is taken relative to `base`, or to the process's working
/// directory when that is empty. ".." at the root stays at the root.
std::string standardized(std::string_view path, std::string_view base = {});
/// A leading "~" or "~/" replaced by the home folder.
std::string expandingTilde(std::string_view path);
/// The part after the last slash, without those at the end; "/" for the root.
std::string lastComponent(std::string_view path);
/// The part before that slash; "/" for the root, empty when there is none.
std::string parent(std::string_view path);

/// No file has a name with a zero byte, as texts of other programs may.
bool exists(const std::string& path);
bool isFolder(const std::string& path);
/// Exists, is not a folder, and this user may execute it.
bool isExecutable(const std::string& path);

/// The whole content of a regular file. Pipes, sockets and devices are refused: they could block
/// forever. A file of more than `most` bytes is refused as well, and not read.
Result<std::string> read(const std::string& path,
                         std::size_t most = std::numeric_limits<std::size_t>::max());
/// Replaces the file in one step: readers see the old content or the new one, also after a power
/// loss (the data and the folder are synced). The parent folder must exist. A symbolic link at
/// `path` is followed, or replaced itself. An existing file keeps its mode when no mode is given; a
/// new one gets 0666 less the umask. After a failure the old file is untouched and nothing is left
/// beside it.
enum class Links { follow, replace };
Result<> writeAtomically(const std::string& path, std::string_view content,
                         std::optional<mode_t> mode = std::nullopt, Links links = Links::follow);
/// Moves something unreadable (a file or a link) in one step to a free name in the same folder,
/// "/x/fleet that could not be read 2026-11-22 21.08.00Z.json", and returns that name.
Result<std::string> quarantine(const std::string& path, Date date);
/// Creates the folder and its parents with the mode for those it makes.
Result<> createFolders(const std::string& path, mode_t mode = 0777);
/// createFolders, and mode 0700 on the last one even when it was there before.
Result<> createOwnerOnlyFolder(const std::string& path);
/// A file, a link (not its target) or an empty folder. A missing one is an error.
Result<> remove(const std::string& path);
/// The same with all that a folder contains.
Result<> removeTree(const std::string& path);
/// Moves a folder (or file) to a name that must be free, also to another volume: then it is copied,
/// and the old one goes when the copy is complete. After a failure the old one is whole, or nothing
/// of it is missing in the new one.
Result<> move(const std::string& from, const std::string& to);
/// Lets two files or folders of one volume change names in one step. After a failure both are as
/// they were; a file system that cannot do it says so.
Result<> exchange(const std::string& one, const std::string& other);
/// Copies the content and the mode of a regular file to a name that must be free; a link is
/// followed. Pipes and devices are refused: they could block forever. Durable when it returns;
/// after a failure nothing is left at `to`. A stop is one, of a copy that has lost its purpose.
Result<> copyFile(const std::string& from, const std::string& to, const std::stop_token& stop = {});
/// Moves to the freedesktop.org Trash: the home trash, or the trash of the file's own volume; never
/// copies between volumes. A link is moved as such. GLib reads the environment for it once.
Result<> moveToTrash(const std::string& path);

/// An exclusive lock on a file, held until the object is destroyed or the process ends, however it
/// ends. Owner-only; holds the process id as text.
class LockFile {
 public:
  /// Fails at once when another process, or another part of this one, holds it; `holder` is then
  /// the process id, if known.
  struct Busy {
    std::optional<pid_t> holder;
    std::optional<FileError> error;  // set when the lock could not be tried at all
  };
  static std::expected<LockFile, Busy> acquire(const std::string& path);
  /// The process that holds it at this moment, if one does. Takes no lock, so that it disturbs no
  /// other.
  static std::optional<pid_t> holder(const std::string& path);
  /// Whether some process holds it at this moment; the same.
  static bool isHeld(const std::string& path);

 private:
  explicit LockFile(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}
  Descriptor descriptor_;
};

}  // namespace vantrell::files
