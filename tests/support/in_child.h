// Runs a part of a test in a forked child, for what changes a whole process: limits, mounts, death.
#pragma once

#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vantrell::tests {

/// Answered by a child that may not do what the test needs.
constexpr int childCannot = 77;

/// The exit status of the child, in which `part` ran and gave it; 128 and the signal if one ended
/// it. A zero should mean that all went well.
inline int inChild(const std::function<int()>& part) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    int status = 126;
    try {
      status = part();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s\n", error.what());
    }
    _exit(status);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// Mounts a file system of the given size at `folder`, seen by this process alone, which should be
/// a child. False where the system does not permit it.
inline bool mountSmallVolume(const std::string& folder, const std::string& size) {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWNS) != 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1";
    std::ofstream("/proc/self/gid_map") << group << ' ' << group << " 1";
  }
  return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("tmpfs", folder.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
}

inline bool makeReadOnly(const std::string& volume) {
  return mount(nullptr, volume.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

/// Runs `part` in a child that sees a small volume at `folder`. It should give zero.
inline void expectOnSmallVolume(const std::string& folder, const std::string& size,
                                const std::function<int()>& part) {
  const int status = inChild([&] { return mountSmallVolume(folder, size) ? part() : childCannot; });
  if (status == childCannot) GTEST_SKIP() << "no private mounts here";
  EXPECT_EQ(status, 0);
}

/// From here on a write that makes a file of this process larger fails, as on a full disk.
inline bool limitFileSize(rlim_t bytes) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) != 0) return false;
  limit.rlim_cur = bytes;
  return setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

}  // namespace vantrell::tests
