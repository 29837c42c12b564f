#include <fmt/format.h>
#include <gio/gio.h>
#include <memory>

#include "platform/files/files.h"

namespace vantrell::files {

Result<> moveToTrash(const std::string& path) {
  const std::string absolute = standardized(path);  // a slash at its end would mean a link's target
  // The local files alone: the default would first load what serves files of the network.
  const std::unique_ptr<GFile, decltype(&g_object_unref)> file(
      g_vfs_get_file_for_path(g_vfs_get_local(), absolute.c_str()), g_object_unref);
  GError* error = nullptr;
  if (g_file_trash(file.get(), nullptr, &error)) return {};
  const std::unique_ptr<GError, decltype(&g_error_free)> held(error, g_error_free);
  const bool isMissing = g_error_matches(error, G_IO_ERROR, G_IO_ERROR_NOT_FOUND);
  return std::unexpected(FileError{
      std::make_error_code(isMissing ? std::errc::no_such_file_or_directory : std::errc::io_error),
      fmt::format("Could not move {} to the Trash: {}", absolute, error->message)});
}

}  // namespace vantrell::files
