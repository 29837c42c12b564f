#include "platform/archive/archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <unistd.h>

#include "platform/files/descriptor.h"
#include "platform/files/files.h"
#include "platform/files/files_system.h"
#include "platform/http/dynamic_library.h"
#include "platform/text/text.h"
#include "platform/text/visible_text.h"

namespace vantrell::archive {

namespace {

struct Library : DynamicLibrary {
  Library() : DynamicLibrary("libarchive.so.13") {}
  // clang-format off
  VANTRELL_FUNCTION(archive_read_new) VANTRELL_FUNCTION(archive_read_free)
  VANTRELL_FUNCTION(archive_read_support_format_tar)
  VANTRELL_FUNCTION(archive_read_support_filter_gzip)
  VANTRELL_FUNCTION(archive_read_support_filter_xz)
  VANTRELL_FUNCTION(archive_read_support_filter_zstd)
  VANTRELL_FUNCTION(archive_read_open_memory) VANTRELL_FUNCTION(archive_read_next_header)
  VANTRELL_FUNCTION(archive_read_data) VANTRELL_FUNCTION(archive_filter_bytes)
  VANTRELL_FUNCTION(archive_error_string) VANTRELL_FUNCTION(archive_entry_pathname)
  VANTRELL_FUNCTION(archive_entry_filetype) VANTRELL_FUNCTION(archive_entry_mode)
  VANTRELL_FUNCTION(archive_entry_hardlink) VANTRELL_FUNCTION(archive_entry_symlink)
  // clang-format on
};

using Outcome = std::expected<void, std::string>;

/// Whether the name stays inside the folder, whatever is there.
bool staysInside(std::string_view name) {
  if (name.empty() || name.starts_with('/')) return false;
  for (const auto part : text::split(name, '/')) {
    if (part == "..") return false;
  }
  return true;
}

class Extraction {
 public:
  Extraction(const Library& library, struct archive* reader, std::string folder,
             const Limits& limits)
      : library_(library), reader_(reader), folder_(std::move(folder)), limits_(limits) {}

  Outcome take(archive_entry* entry) {
    const char* const given = library_.archive_entry_pathname(entry);
    const std::string name = given ? given : "";
    const auto refuse = [&](std::string_view what) {
      return std::unexpected(
          fmt::format("The archive is refused: \"{}\" {}.", text::onOneLine(name), what));
    };
    if (!staysInside(name)) return refuse("would lie outside its folder");
    if (++entries_ > limits_.entries) return refuse("is one entry too many");
    // A hard link has the type of a file.
    if (library_.archive_entry_hardlink(entry) || library_.archive_entry_symlink(entry)) {
      return refuse("is a link");
    }
    const auto type = library_.archive_entry_filetype(entry);
    if (type != AE_IFDIR && type != AE_IFREG) return refuse("is neither a file nor a folder");
    const auto path = files::standardized(name, folder_);
    const auto made = files::createFolders(type == AE_IFDIR ? path : files::parent(path), 0755);
    if (!made) return std::unexpected(made.error().description);
    if (type == AE_IFDIR) return {};
    const bool isProgram = (library_.archive_entry_mode(entry) & 0111) != 0;
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                 isProgram ? 0755 : 0644));
    if (!file && errno == EEXIST) return refuse("comes twice");
    if (!file) return failed("make", path);
    return write(file.get(), path);
  }

 private:
  static Outcome failed(std::string_view action, const std::string& path) {
    return std::unexpected(files::failure(action, path).error().description);
  }
  Outcome write(int file, const std::string& path) {
    std::string piece(std::size_t{256} << 10, '\0');
    for (;;) {
      const auto count = library_.archive_read_data(reader_, piece.data(), piece.size());
      if (count < 0) {
        const char* const why = library_.archive_error_string(reader_);
        return std::unexpected(
            fmt::format("The archive cannot be read: {}.", why ? why : "it is damaged"));
      }
      if (count == 0) break;
      bytes_ += static_cast<std::uint64_t>(count);
      if (bytes_ > limits_.bytes)
        return std::unexpected("The archive is refused: it is too large.");
      if (!files::writeAll(file,
                           std::string_view(piece).substr(0, static_cast<std::size_t>(count)))) {
        return failed("write", path);
      }
    }
    if (::fsync(file) != 0) return failed("write", path);
    return {};
  }

  const Library& library_;
  struct archive* const reader_;
  const std::string folder_;
  const Limits limits_;
  std::uint64_t entries_ = 0;
  std::uint64_t bytes_ = 0;
};

}  // namespace

Outcome extract(std::string_view bytes, const std::string& folder,
                const std::function<void(double)>& progress, const Limits& limits) {
  static const Library library;
  if (!library.isComplete()) {
    return std::unexpected(
        fmt::format("Opening archives needs the library libarchive: {}.", library.problem()));
  }
  if (files::exists(folder)) return std::unexpected(fmt::format("{} is there already.", folder));
  if (const auto made = files::createFolders(folder, 0755); !made) {
    return std::unexpected(made.error().description);
  }
  const std::unique_ptr<struct archive, decltype(library.archive_read_free)> reader(
      library.archive_read_new(), library.archive_read_free);
  if (!reader) return std::unexpected("There is no memory to open the archive.");
  library.archive_read_support_format_tar(reader.get());
  library.archive_read_support_filter_gzip(reader.get());
  library.archive_read_support_filter_xz(reader.get());
  library.archive_read_support_filter_zstd(reader.get());
  int status = library.archive_read_open_memory(reader.get(), bytes.data(), bytes.size());
  Extraction extraction(library, reader.get(), folder, limits);
  while (status == ARCHIVE_OK) {
    archive_entry* entry = nullptr;
    status = library.archive_read_next_header(reader.get(), &entry);
    if (status == ARCHIVE_EOF) return {};
    // A warning is about a name or an attribute that is not as it should be.
    if (status != ARCHIVE_OK) break;
    if (auto taken = extraction.take(entry); !taken) return taken;
    if (progress && !bytes.empty()) {
      progress(static_cast<double>(library.archive_filter_bytes(reader.get(), -1)) /
               static_cast<double>(bytes.size()));
    }
  }
  const char* const why = library.archive_error_string(reader.get());
  return std::unexpected(
      fmt::format("The archive cannot be read: {}.", why ? why : "it is damaged"));
}

}  // namespace vantrell::archive
