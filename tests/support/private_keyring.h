// A session bus of the test's own, and a real GNOME Keyring on it that the bus starts when it is
// first spoken to. Their home, folders and sockets are the test's; the user's are never touched.
#pragma once

#include <csignal>
#include <filesystem>
#include <fmt/format.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/environment.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

class PrivateBus {
 public:
  enum class Policy { open, denyingTheKeyring };

  explicit PrivateBus(Policy policy = Policy::open) {
    folder_.folder("services");
    const std::string config = folder_.file(
        "bus.conf",
        fmt::format("<busconfig><type>session</type><listen>unix:path={0}/bus</listen>"
                    "<auth>EXTERNAL</auth><servicedir>{0}/services</servicedir>"
                    "<policy context=\"default\"><allow send_destination=\"*\"/>"
                    "<allow receive_sender=\"*\"/><allow own=\"*\"/>{1}</policy></busconfig>",
                    folder_.path(),
                    policy == Policy::denyingTheKeyring
                        ? "<deny send_destination=\"org.freedesktop.secrets\"/>"
                        : ""));
    int announced[2];
    if (pipe(announced) != 0) throw std::runtime_error("no pipe");
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (getppid() != parent) _exit(1);
      close(announced[0]);
      const std::string print = fmt::format("--print-address={}", announced[1]);
      const std::string file = "--config-file=" + config;
      const std::string home = "HOME=" + folder_.folder("home");
      const std::string data = "XDG_DATA_HOME=" + folder_.folder("data");
      const std::string runtime = "XDG_RUNTIME_DIR=" + folder_.folder("run");
      const char* arguments[] = {"dbus-daemon", file.c_str(), "--nofork", print.c_str(), nullptr};
      const char* environment[] = {home.c_str(), data.c_str(), runtime.c_str(),
                                   "PATH=/usr/local/bin:/usr/bin:/bin", nullptr};
      freopen("/dev/null", "w", stderr);
      execvpe(arguments[0], const_cast<char**>(arguments), const_cast<char**>(environment));
      _exit(127);
    }
    close(announced[1]);
    char byte = 0;
    const bool isUp = ::read(announced[0], &byte, 1) == 1;
    close(announced[0]);
    if (!isUp) throw std::runtime_error("dbus-daemon does not start: is it installed?");
    environment_.set("DBUS_SESSION_BUS_ADDRESS", fmt::format("unix:path={}/bus", folder_.path()));
  }
  ~PrivateBus() { stop(); }
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  void stop() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = 0;
  }
  const TemporaryFolder& folder() const { return folder_; }

 private:
  TemporaryFolder folder_;
  Environment environment_;
  pid_t pid_ = 0;
};

class PrivateKeyring : public PrivateBus {
 public:
  explicit PrivateKeyring(Policy policy = Policy::open) : PrivateBus(policy) {
    const std::string start = folder().file(
        "start",
        "#!/bin/sh\n"
        "cd \"${0%/*}\" && [ ! -e out-of-order ] || exit 1\n"
        "echo $$ > new-pid && mv new-pid pid\n"
        "[ -e locked ] && exec gnome-keyring-daemon --foreground --components=secrets\n"
        "exec gnome-keyring-daemon --foreground --components=secrets --unlock < password\n");
    folder().file("password", "password");
    std::filesystem::permissions(start, std::filesystem::perms::owner_all);
    folder().file("services/org.freedesktop.secrets.service",
                  fmt::format("[D-BUS Service]\nName=org.freedesktop.secrets\nExec={}\n", start));
  }
  ~PrivateKeyring() { end(); }

  /// Ends the service and waits for that; the next call starts it again.
  void end() {
    const std::string pid = TemporaryFolder::contentOf(folder() / "pid");
    if (pid.empty()) return;
    const int process = static_cast<int>(syscall(SYS_pidfd_open, std::stoi(pid), 0));
    signal(SIGKILL);
    pollfd ended{process, POLLIN, 0};
    poll(&ended, 1, -1);
    close(process);
    std::filesystem::remove(folder() / "pid");
  }
  /// To the service, which must have been spoken to.
  bool signal(int number) const {
    const std::string pid = TemporaryFolder::contentOf(folder() / "pid");
    return !pid.empty() && kill(std::stoi(pid), number) == 0;
  }
  void endLocked() {
    folder().file("locked", "");
    end();
  }
  void endForGood() {
    folder().file("out-of-order", "");
    end();
  }
};

}  // namespace vantrell::tests
