// What Process and child-supervisor, the small program above each child, say to each other: one
// message each way through a socket that keeps messages apart. No C++ header: the supervisor is
// built without the C++ library.
#pragma once

namespace vantrell::supervision {

constexpr const char* programName = "child-supervisor";

/// The supervisor's end of the socket. Its end of file means that Vantrell is gone.
constexpr int controlDescriptor = 3;

// Its first argument holds some of these letters, the second is the working folder (empty: the
// present one), and the rest is the program with its arguments.
constexpr char endsGroupWithLeader = 'g';
constexpr char ownSession = 's';
constexpr char mayDetach = 'd';

/// What failed: making pipes and the like, entering the working folder, executing the file, or
/// (which only Vantrell meets) writing to the child.
enum class Step : int { prepare, enterFolder, execute, write };

/// To the supervisor: SIGTERM or SIGKILL for all that is left of the child.
enum class Command : char { terminate = 't', kill = 'k' };

/// From the supervisor. The first one is `started` or `failed`; its end of file means that nothing
/// of the child is left.
struct Report {
  enum class Kind : int { started, failed, exited };
  Kind kind = Kind::started;
  int first = 0;   // started: process id; failed: Step; exited: status
  int second = 0;  // failed: errno; exited: signal
};

}  // namespace vantrell::supervision
