#include "platform/process/own_process.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/in_child.h"

namespace vantrell::tests {
namespace {

bool isNullDevice(int descriptor) {
  struct stat found{};
  struct stat null{};
  return fstat(descriptor, &found) == 0 && stat("/dev/null", &null) == 0 &&
         found.st_rdev == null.st_rdev;
}

TEST(OwnProcess, OpensTheNullDeviceOnMissingStandardStreamsAndLeavesTheOthers) {
  for (int closed = 0; closed < 8; ++closed) {
    EXPECT_EQ(inChild([&] {
                int pipe[2];
                if (::pipe(pipe) != 0) return 1;
                for (int stream = 0; stream < 3; ++stream) {
                  ::dup2(pipe[1], stream);
                  if (closed & 1 << stream) ::close(stream);
                }
                if (!prepareOwnProcess()) return 2;
                for (int stream = 0; stream < 3; ++stream) {
                  const bool wasClosed = closed & 1 << stream;
                  if (isNullDevice(stream) != wasClosed) return 3;
                }
                const int next = ::open("/dev/null", O_RDONLY);
                return next > pipe[1] ? 0 : 4;
              }),
              0)
        << closed;
  }
}

TEST(OwnProcess, RaisesALimitOfOpenFilesThatIsTooLowOrNamesIt) {
  const auto underLimit = [](rlim_t soft, rlim_t hard) {
    return inChild([&] {
      const rlimit limit{soft, hard};
      if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return 1;
      const auto prepared = prepareOwnProcess();
      if (!prepared) return prepared.error().contains("Only 12 files") ? 2 : 3;
      rlimit now{};
      return ::getrlimit(RLIMIT_NOFILE, &now) == 0 && now.rlim_cur > soft ? 0 : 4;
    });
  };
  EXPECT_EQ(underLimit(12, 1024), 0);
  EXPECT_EQ(underLimit(12, 12), 2);
}

TEST(OwnProcess, AFileThatGrowsOverItsLimitIsAnError) {
  EXPECT_EQ(inChild([] {
              std::signal(SIGXFSZ, SIG_DFL);
              const rlimit limit{1, 1};
              const int file = ::open("/tmp", O_TMPFILE | O_RDWR, 0600);
              if (!prepareOwnProcess() || ::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
              return ::write(file, "ab", 2) == 1 && ::write(file, "c", 1) < 0 && errno == EFBIG ? 0
                                                                                                : 2;
            }),
            0);
}

}  // namespace
}  // namespace vantrell::tests
