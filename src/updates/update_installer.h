// Puts a downloaded release in the place of this one, step by step, each of which may be cut off at
// any moment: until the last one the program that was there is untouched, and the last one lets the
// two change places at once. Blocks; any thread but the main one.
#pragma once

#include <expected>
#include <functional>
#include <string>

#include "updates/appcast.h"
#include "updates/installation.h"

namespace vantrell {

class UpdateInstaller {
 public:
  using Outcome = std::expected<void, std::string>;
  /// In the work folder; held by the process that updates the installation.
  static constexpr const char* lockName = "lock";
  static constexpr std::uint64_t largestArchive = std::uint64_t{1} << 30;  // bytes

  UpdateInstaller(Installation installation, AppcastItem item);

  /// What was downloaded of this archive, and what is still to come goes there too.
  std::string downloadPath() const;
  /// Makes the folder that all of it lies in.
  Outcome makeFolder() const;
  /// Checks length and signature, and only then opens the archive, which must be the version that
  /// the feed promised. An archive that is refused is removed, so that the next attempt gets it
  /// again.
  Outcome open(const std::function<void(double)>& progress) const;
  /// The program of the opened release, which is to answer "--version" before it is taken.
  std::string openedProgram() const;
  Outcome take(int status, const std::string& answer) const;
  /// Lets the release that was taken and this one change places.
  Outcome exchange() const;

  /// Once the new version has started: removes the one before. False when there is none, or an
  /// update is under way.
  static bool forgetPrevious(const Installation& installation);
  /// The version before takes its place again. False when there is none.
  static bool goBack(const Installation& installation);

 private:
  std::string folder(std::string_view name) const;
  Outcome checkRelease(const std::string& root) const;

  const Installation installation_;
  const AppcastItem item_;
};

}  // namespace vantrell
