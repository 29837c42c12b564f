// Standard output for commands that are done at once: buffered, and attentive to what happens to
// it. A reader who has gone is no failure; a disk that is full is one. Blocks; main thread.
#pragma once

#include <string>
#include <string_view>

namespace vantrell::shell {

class StandardOutput {
 public:
  void write(std::string_view text);
  /// Nothing more can be written: whoever produces much may stop.
  bool isClosed() const { return error_ != 0; }
  /// Writes what is left. Answers the status given, or exitStatus::failed where the output could
  /// not be written, and then says why on standard error.
  int finish(int status);

 private:
  void drain();

  std::string waiting_;
  int error_ = 0;  // errno
};

/// What to say when standard output takes no more, for a reason other than that its reader has
/// gone; empty for that one.
std::string whyOutputFailed(int error);

}  // namespace vantrell::shell
