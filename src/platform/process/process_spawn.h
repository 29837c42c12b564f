// Starts one program below a child-supervisor of its own (supervision.h). Part of Process.
#pragma once

#include <expected>
#include <spawn.h>
#include <string>
#include <sys/types.h>
#include <vector>

#include "platform/files/descriptor.h"
#include "platform/process/process_options.h"

namespace vantrell {

/// Null-terminated pointer lists as the kernel takes them, valid as long as this object.
class ProgramWords {
 public:
  ProgramWords(std::vector<std::string> arguments, const Environment& environment);
  ProgramWords(const ProgramWords&) = delete;
  ProgramWords& operator=(const ProgramWords&) = delete;

  char* const* arguments() const { return argumentPointers_.data(); }
  char* const* environment() const { return variablePointers_.data(); }

 private:
  std::vector<std::string> arguments_;
  std::vector<std::string> variables_;
  std::vector<char*> argumentPointers_;
  std::vector<char*> variablePointers_;
};

/// For posix_spawn: the program begins with the usual signals, whatever this one does with them.
class SpawnAttributes {
 public:
  /// More flags of posix_spawnattr_setflags.
  explicit SpawnAttributes(short flags = 0);
  ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

struct SpawnedProgram {
  pid_t id = 0;
  pid_t supervisor = 0;  // to be reaped after the end of `control`
  Descriptor control;    // messages of supervision.h
  // Non-blocking; empty where the options ask for no pipe.
  Descriptor input;
  Descriptor output;
  Descriptor error;
};

/// Any thread. Blocks until the program runs or has failed to start.
std::expected<SpawnedProgram, ProcessError> spawn(const ProcessOptions& options);

/// Waits for the end of a child of this process.
void reapProgram(pid_t id);

/// An error number and what the system says to it.
ProcessError processError(ProcessError::Step step, int error);

}  // namespace vantrell
