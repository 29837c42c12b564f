// Starts one program. Part of Process. posix_spawn cannot set a parent death signal nor tell the
// guard of the new group before the program runs, and fork copies the page tables of a large
// program; so this is a clone that borrows the memory until the exec, as posix_spawn itself is.
#pragma once

#include <expected>
#include <string>
#include <sys/types.h>
#include <vector>

#include "platform/files/descriptor.h"
#include "platform/process/process_options.h"

namespace vantrell {

/// The words and variables of a program as the kernel takes them: lists of pointers that end with
/// null, valid as long as this object.
class ProgramWords {
 public:
  ProgramWords(const std::string& executable, const std::vector<std::string>& arguments,
               const Environment& environment);
  ProgramWords(const ProgramWords&) = delete;
  ProgramWords& operator=(const ProgramWords&) = delete;

  /// The executable first.
  char* const* arguments() const { return argumentPointers_.data(); }
  char* const* environment() const { return variablePointers_.data(); }

 private:
  std::vector<std::string> arguments_;
  std::vector<std::string> variables_;
  std::vector<char*> argumentPointers_;
  std::vector<char*> variablePointers_;
};

/// All pointers must stay valid during the call. Descriptors must be above 2.
struct SpawnRequest {
  const char* executable = nullptr;
  char* const* arguments = nullptr;    // with the executable, ends with null
  char* const* environment = nullptr;  // ends with null
  const char* folder = nullptr;        // null: this process's own
  int input = -1;
  int output = -1;
  int error = -1;
  /// A pipe to which the child writes "+<process id>\n" before it runs the program, or -1.
  int guard = -1;
  /// A session of its own, and not just a process group.
  bool ownSession = false;
  /// Gets SIGTERM when the spawning thread dies: all but the guard.
  bool diesWithParent = true;
};

struct Spawned {
  pid_t id = 0;
  Descriptor handle;  // a pidfd
  bool toldGuard = false;
};

struct SpawnFailure {
  ProcessError error;
  /// The group that the guard was told of in vain, or 0.
  pid_t toldGuard = 0;
};

/// On the reactor's thread only: it has every signal blocked, as this needs, and lives for ever.
std::expected<Spawned, SpawnFailure> spawn(const SpawnRequest& request);

/// An error number and what the system says to it.
ProcessError processError(ProcessError::Step step, int error);

/// The descriptor, or a copy of it above the standard three, which a child's own are put onto.
Descriptor aboveStandard(Descriptor descriptor);

}  // namespace vantrell
