// The programs of the runtimes on this machine: where they are, in which version, signed in or not,
// and how the user installs them and signs in. A log-in follows a user's action, never comes by
// itself; nothing is ever installed. Main queue; programs run in the background and end with the
// runner.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/core/changes.h"
#include "engine/core/refusal.h"
#include "engine/providers/runtime_install_status.h"
#include "platform/desktop/desktop.h"
#include "records/values/agent_provider.h"

namespace vantrell {

class BackgroundPool;
class ProgramRunner;

/// What finds and starts the programs.
struct RuntimePrograms {
  std::shared_ptr<ProgramRunner> runner;  // unset: programs are looked for, and none is started
  BackgroundPool* pool = nullptr;         // for longer talks with a program; set with the runner
  std::shared_ptr<Desktop> desktop = Desktop::none();
  /// The path that the user has set for a provider's program.
  std::function<std::optional<std::string>(AgentProvider)> customExecutable =
      [](AgentProvider) -> std::optional<std::string> { return std::nullopt; };
  /// Gets the folders of the user's own PATH into the search and calls back once; unset: the PATH
  /// of this process is all there is.
  std::function<void(std::function<void()> done)> readUserPath;
};

class InstalledRuntimes : public std::enable_shared_from_this<InstalledRuntimes> {
 public:
  InstalledRuntimes(Changes& changes, RuntimePrograms programs);
  const RuntimePrograms& programs() const { return programs_; }

  // What is known. Providers that have no program of their own are `missing`.

  const RuntimeInstallStatus& status(AgentProvider provider) const;
  const GrokInstallStatus& installStatus() const { return status(AgentProvider::grok); }
  const CodexInstallStatus& codexInstallStatus() const { return status(AgentProvider::codex); }
  const KimiInstallStatus& kimiInstallStatus() const { return status(AgentProvider::kimi); }
  const OpenCodeInstallStatus& openCodeInstallStatus() const { return status(AgentProvider::glm); }
  const ClaudeInstallStatus& claudeInstallStatus() const { return status(AgentProvider::claude); }
  const RuntimeLogin& login(AgentProvider provider) const;
  /// Whether some answer of a program is still awaited.
  bool isAsking() const;
  bool isAsking(AgentProvider provider) const;
  bool isReadingUserPath() const { return userPath_ == UserPath::reading; }

  /// Gets the folders of the user's own PATH into the search, which takes the login shell's time.
  /// It is asked once; calls back when the answer is there, within this call if it is already.
  void readUserPath(std::function<void()> done);

  /// Looks for the program, says at once whether it is there, and asks it in the background for the
  /// rest. What an earlier refresh still brings is dropped.
  void refresh(AgentProvider provider);
  void refreshInstallStatus() { refresh(AgentProvider::grok); }
  void refreshCodexInstallStatus() { refresh(AgentProvider::codex); }
  void refreshKimiInstallStatus() { refresh(AgentProvider::kimi); }
  void refreshOpenCodeInstallStatus() { refresh(AgentProvider::glm); }
  void refreshClaudeInstallStatus() { refresh(AgentProvider::claude); }
  /// All five. The first time, the user's own PATH is read beside it; a program that is not found
  /// stays `checking` until that is known.
  void refreshAll();
  /// The program is not there: what somebody found out who wanted to use it.
  void noteMissing(AgentProvider provider);

  /// Runs the program's own log-in, which opens a browser. One at a time for each runtime.
  void logIn() { logInInBackground(AgentProvider::grok); }
  void logInCodex() { logInInBackground(AgentProvider::codex); }
  void logInKimi() { logInInBackground(AgentProvider::kimi); }
  /// Copies the command and opens a terminal, where the user runs it.
  void setUpOpenCodeGLM() { logInInTerminal(AgentProvider::glm); }
  void logInClaude() { logInInTerminal(AgentProvider::claude); }

  void copyCommandAndOpenTerminal(const std::string& command);
  /// Of Grok Build. The others' commands are shown for the user to run.
  void copyInstallCommandAndOpenTerminal();
  /// Opens a terminal in the folder of a project.
  void openProjectInTerminal(const std::string& folder);

  /// Why the last log-in or terminal did not work, for the user; announced as topics::runtimes, and
  /// gone with the next attempt.
  const std::optional<std::string>& failure() const { return failure_; }

 private:
  struct Entry {
    RuntimeInstallStatus status;
    RuntimeLogin login;
    int refreshes = 0;      // the number of the latest
    bool isAsking = false;  // its answers are awaited
  };
  Entry* find(AgentProvider provider);
  std::optional<std::string> executable(AgentProvider provider) const;
  void publish(AgentProvider provider, RuntimeInstallStatus status);
  void announce();
  void userPathRead();
  void refresh(const std::vector<AgentProvider>& providers);
  void logInInBackground(AgentProvider provider);
  void logInInTerminal(AgentProvider provider);
  void loginEnded(AgentProvider provider, int status, const std::string& output);

  enum class UserPath { unread, reading, known };

  Changes& changes_;
  RuntimePrograms programs_;
  std::optional<std::string> failure_;
  std::map<AgentProvider, Entry> entries_;
  UserPath userPath_ = UserPath::known;
  std::vector<std::function<void()>> whenUserPathIsKnown_;
};

}  // namespace vantrell
