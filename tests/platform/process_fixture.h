// Starts real children and collects what comes of them.
#pragma once

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/files/descriptor.h"
#include "platform/process/process.h"
#include "platform/queues/manual_main_queue.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

using namespace std::chrono_literals;

/// Waits for the end of any process, one that is no child of ours too. True when it is gone.
inline bool waitForEnd(pid_t id, std::chrono::milliseconds limit = 20s) {
  const Descriptor handle(static_cast<int>(::syscall(SYS_pidfd_open, id, 0)));
  if (!handle) return errno == ESRCH;
  pollfd wait{handle.get(), POLLIN, 0};
  return ::poll(&wait, 1, static_cast<int>(limit.count())) == 1;
}

inline std::size_t entries(const std::string& folder) {
  std::error_code ignored;
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
    count += entry.path().empty() ? 0 : 1;
  }
  return count;
}

/// What one child did, collected on the main queue.
struct Record {
  std::shared_ptr<Process> process;
  std::string output;
  std::string error;
  std::vector<ProcessError> writeErrors;
  std::vector<ExitStatus> exits;
  /// "o", "e", "w" and "x" in the order of the events, repeated ones once.
  std::string order;
};

class ProcessTest : public testing::Test {
 protected:
  ~ProcessTest() override { EXPECT_TRUE(Process::waitForAll(20s)); }

  static ProcessOptions shell(std::string script) {
    return {.executable = "/bin/sh",
            .arguments = {"-c", std::move(script)},
            .environment = {{"PATH", "/usr/bin:/bin"}}};
  }

  std::shared_ptr<Record> start(ProcessOptions options) {
    auto record = std::make_shared<Record>();
    auto started = Process::start(std::move(options), queue_, handlersFor(record));
    EXPECT_TRUE(started) << started.error().description;
    if (started) record->process = std::move(*started);
    return record;
  }

  Process::Handlers handlersFor(const std::shared_ptr<Record>& record) {
    const auto note = [this, record](char event, auto change) {
      main_.post([record, event, change = std::move(change)] {
        change(*record);
        if (!record->order.ends_with(event)) record->order += event;
      });
    };
    return {.onOutput =
                [note](std::string_view bytes) {
                  note('o', [text = std::string(bytes)](Record& to) { to.output += text; });
                },
            .onError =
                [note](std::string_view bytes) {
                  note('e', [text = std::string(bytes)](Record& to) { to.error += text; });
                },
            .onWriteError =
                [note](const ProcessError& error) {
                  note('w', [error](Record& to) { to.writeErrors.push_back(error); });
                },
            .onExit =
                [note](ExitStatus status) {
                  note('x', [status](Record& to) { to.exits.push_back(status); });
                }};
  }

  /// Lets the child run to its end.
  std::shared_ptr<Record> finish(const std::shared_ptr<Record>& record) {
    EXPECT_TRUE(main_.runUntil([&] { return !record->exits.empty(); }));
    return record;
  }
  std::shared_ptr<Record> run(ProcessOptions options) { return finish(start(std::move(options))); }

  void awaitOutput(const Record& record, std::string_view text) {
    EXPECT_TRUE(main_.runUntil([&] { return record.output.contains(text); })) << record.output;
  }
  /// A line of the output as a process id.
  pid_t idIn(const Record& record) {
    awaitOutput(record, "\n");
    return static_cast<pid_t>(std::strtol(record.output.c_str(), nullptr, 10));
  }

  /// The process id that a program writes to the file, once it has.
  pid_t awaitIdIn(const std::string& path) {
    pid_t id = 0;
    EXPECT_TRUE(main_.runUntil([&] {
      main_.post([] {});  // nobody tells of the file, so this looks again and again
      const std::string text = TemporaryFolder::contentOf(path);
      if (text.ends_with('\n')) id = static_cast<pid_t>(std::atoi(text.c_str()));
      return id > 0;
    }));
    return id;
  }

  /// Waits until the handlers' queue has done what it holds now.
  void awaitQueue() {
    std::promise<void> reached;
    const auto future = reached.get_future();
    queue_.post([reached = std::move(reached)]() mutable { reached.set_value(); });
    future.wait();
  }

  ManualMainQueue main_;
  BackgroundPool pool_{2};
  SerialQueue queue_{pool_, "test"};
};

}  // namespace vantrell::tests
