// The built program in a home of its own, with the practice agent.
#pragma once

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/files/files.h"
#include "platform/process_fixture.h"
#include "platform/terminal/terminal.h"
#include "platform/values/json.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

class TerminalProgram : public ProcessTest {
 protected:
  TerminalProgram() {
    project = home.folder("project");
    home.folder("runtime");
  }

  ProcessOptions vantrell(std::vector<std::string> arguments) const {
    return {.executable = terminal::programFolder() + "/vantrell",
            .arguments = std::move(arguments),
            .environment = {{"PATH", "/usr/bin:/bin"},
                            {"SHELL", "/bin/sh"},
                            {"HOME", home.path()},
                            {"TERM", "xterm"},
                            {"XDG_DATA_HOME", home / "data"},
                            {"XDG_CONFIG_HOME", home / "config"},
                            {"XDG_STATE_HOME", home / "state"},
                            {"XDG_RUNTIME_DIR", home / "runtime"}},
            .workingFolder = project};
  }
  /// `vantrell run --practice` and these, without any input.
  ProcessOptions practice(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"run", "--practice"});
    auto options = vantrell(std::move(arguments));
    options.standardInput = ProcessOptions::Input::null;
    return options;
  }
  std::shared_ptr<Record> runPractice(std::vector<std::string> arguments) {
    return run(practice(std::move(arguments)));
  }
  /// Runs it with this standard input.
  std::shared_ptr<Record> runPracticeWith(std::string input, std::vector<std::string> arguments) {
    auto options = practice(std::move(arguments));
    options.standardInput = ProcessOptions::Input::pipe;
    auto record = start(std::move(options));
    record->process->write(std::move(input));
    record->process->closeInput();
    return finish(record);
  }
  /// The command without any input.
  std::shared_ptr<Record> does(std::vector<std::string> words) {
    auto options = vantrell(std::move(words));
    options.standardInput = ProcessOptions::Input::null;
    return run(std::move(options));
  }
  /// What it prints with --json.
  std::vector<JsonObject> objects(std::vector<std::string> words) {
    words.emplace_back("--json");
    const auto done = does(std::move(words));
    EXPECT_EQ(done->error, "");
    return events(done);
  }
  static int code(const std::shared_ptr<Record>& record) { return record->exits.at(0).code(); }

  /// Every line must be an object.
  static std::vector<JsonObject> events(const std::shared_ptr<Record>& record) {
    std::vector<JsonObject> all;
    std::string_view rest = record->output;
    while (!rest.empty()) {
      const auto end = rest.find('\n');
      const auto object = json::parseObject(rest.substr(0, end));
      EXPECT_TRUE(object) << rest.substr(0, end);
      EXPECT_NE(end, std::string_view::npos) << "a line without its end";
      if (object) all.push_back(*object);
      rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    return all;
  }
  static std::string kindOf(const JsonObject& event) { return json::textOr(event, "event", "?"); }
  static std::string threadOf(const std::shared_ptr<Record>& record) {
    const auto all = events(record);
    return all.empty() ? "" : json::textOr(all.front(), "threadID", "");
  }

  /// A program of the test's own in its home.
  std::string install(const std::string& place, const std::string& script) const {
    auto path = home.file(place, "#!/bin/sh\n" + script + "\n");
    ::chmod(path.c_str(), 0755);
    return path;
  }
  /// The practice agent plays Kimi and Grok, which speak its protocol.
  void usePracticeAgents() {
    const auto agent =
        install("agent", "exec '" + terminal::programFolder() + "/vantrell-practice-agent' acp");
    does({"settings", "kimi-path", agent});
    does({"settings", "grok-path", agent});
  }

  /// Processes whose environment names this test's home, by program name.
  std::vector<pid_t> processesOf(std::string_view program = {}) const {
    std::vector<pid_t> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
      const auto id = static_cast<pid_t>(std::atoi(entry.path().filename().c_str()));
      if (id <= 0 || id == ::getpid()) continue;
      if (!TemporaryFolder::contentOf(entry.path() / "environ").contains("HOME=" + home.path())) {
        continue;
      }
      std::error_code gone;
      const auto executable = std::filesystem::read_symlink(entry.path() / "exe", gone);
      if (gone || (!program.empty() && executable.filename() != program)) continue;
      found.push_back(id);
    }
    return found;
  }
  void expectNothingLeft() const {
    for (const pid_t id : processesOf()) EXPECT_TRUE(waitForEnd(id, 5s)) << id;
  }

  TemporaryFolder home;
  std::string project;
};

}  // namespace vantrell::tests
