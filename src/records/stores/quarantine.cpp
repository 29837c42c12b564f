#include "records/stores/quarantine.h"

#include <filesystem>
#include <fmt/format.h>
#include <fstream>

#include "platform/files/dated_name.h"
#include "platform/storage/database.h"

namespace vantrell::quarantine {

namespace {

/// SQLite's largest page: a file that ends between two pages is opened.
constexpr std::uintmax_t largestPage = 65536;

std::unexpected<files::FileError> failure(std::string_view action, const std::string& path,
                                          std::error_code code) {
  return std::unexpected(
      files::FileError{code, fmt::format("Could not {} {}: {}", action, path, code.message())});
}

/// The length that the first page promises, or that of the file.
std::uintmax_t promisedLength(const std::string& path, std::uintmax_t length) {
  char bytes[DatabaseHeader::length];
  std::ifstream file(path, std::ios::binary);
  if (!file.read(bytes, sizeof bytes)) return length;
  const auto header = DatabaseHeader::read({bytes, sizeof bytes});
  const std::uintmax_t promised = std::uintmax_t{header.pageSize} * header.pages;
  // No more than the file plus as much again: a damaged header promises anything.
  return std::min(std::max(promised, length), length * 2 + largestPage);
}

}  // namespace

files::Result<std::string> write(const std::string& folder, std::string_view what, Date now,
                                 std::string_view content) {
  std::string path = files::datedName(folder, what, now, ".json");
  if (auto written = files::writeAtomically(path, content, 0600); !written) {
    return std::unexpected(std::move(written.error()));
  }
  return path;
}

files::Result<> moveFile(const std::string& path, std::string_view reason, Date now,
                         const std::function<void(const std::string&)>& notice) {
  const auto kept = files::quarantine(path, now);
  if (kept) {
    notice(fmt::format("{} could not be read ({}). It was kept as \"{}\"; a new one begins.", path,
                       reason, *kept));
  } else if (kept.error().code != std::errc::no_such_file_or_directory) {
    return std::unexpected(kept.error());
  }
  return {};
}

files::Result<std::string> moveDatabase(const std::string& path, std::string_view what, Date now) {
  const std::string place = files::datedName(files::parent(path), what, now, ".sqlite");
  std::error_code code;
  if (files::exists(path + "-wal")) {
    std::filesystem::rename(path + "-wal", place + "-wal", code);
    if (code) return failure("move away", path, code);
  }
  std::filesystem::rename(path, place, code);
  if (code) {
    // The file stays, and so must what its log alone holds.
    std::error_code ignored;
    std::filesystem::rename(place + "-wal", path + "-wal", ignored);
    return failure("move away", path, code);
  }
  // Only an index of the log, made anew when it is needed.
  std::filesystem::remove(path + "-shm", code);
  return place;
}

files::Result<> copyForReading(const std::string& from, const std::string& to) {
  std::error_code code;
  const auto options = std::filesystem::copy_options::overwrite_existing;
  std::filesystem::copy_file(from, to, options, code);
  if (code) return failure("copy", from, code);
  std::filesystem::remove(to + "-wal", code);
  if (files::exists(from + "-wal")) {
    std::filesystem::copy_file(from + "-wal", to + "-wal", options, code);
    if (code) return failure("copy", from, code);
  }
  const auto length = std::filesystem::file_size(to, code);
  if (!code) std::filesystem::resize_file(to, promisedLength(to, length), code);
  if (code) return failure("copy", from, code);
  return {};
}

}  // namespace vantrell::quarantine
