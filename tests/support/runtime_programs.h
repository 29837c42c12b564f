// Programs of runtimes for tests: real files in a home of their own, which behave as a script says.
#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>

#include "engine/core/changes.h"
#include "engine/providers/installed_runtimes.h"
#include "platform/process/login_shell.h"
#include "platform/process/program_runner.h"
#include "platform/queues/manual_main_queue.h"
#include "support/environment.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

class RuntimeProgramsFixture : public testing::Test {
 protected:
  /// A clipboard and a terminal that only note what was asked of them.
  struct NotingDesktop final : Desktop {
    void copy(const std::string& text) override { notes.push_back("copy " + text); }
    void openTerminal(const std::string& folder, Completion completion) override {
      notes.push_back("open " + folder);
      completion(answer);
    }
    std::vector<std::string> notes;
    std::expected<void, std::string> answer;
  };

  RuntimeProgramsFixture() {
    process_.set("HOME", home_.path());
    process_.set("PATH", "/usr/bin:/bin");
    makeRuntimes();
  }
  ~RuntimeProgramsFixture() override {
    loginShell::keepFolders({});
    runtimes_.reset();
    programs_ = {};
    runner_.reset();
    EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  }

  void makeRuntimes() {
    programs_.runner = runner_;
    programs_.pool = &pool_;
    programs_.desktop = desktop_;
    programs_.customExecutable = [this](AgentProvider provider) -> std::optional<std::string> {
      const auto found = custom_.find(provider);
      if (found == custom_.end()) return std::nullopt;
      return found->second;
    };
    runtimes_ = std::make_shared<InstalledRuntimes>(changes_, programs_);
  }

  std::string program(const std::string& name, const std::string& script) const {
    const auto path = home_.file(name, "#!/bin/sh\n" + script + "\n");
    ::chmod(path.c_str(), 0755);
    return path;
  }
  /// Puts it where the user has said that the provider's program lies.
  std::string install(AgentProvider provider, const std::string& script) {
    return custom_[provider] = program(fmt::format("programs/{}", rawText(provider)), script);
  }
  void awaitAnswers() {
    EXPECT_TRUE(main_.runUntil([this] { return !runtimes_->isAsking(); }));
  }
  void awaitLogin(AgentProvider provider) {
    EXPECT_TRUE(main_.runUntil([&] { return !runtimes_->login(provider).isRunning; }));
    awaitAnswers();
  }

  TemporaryFolder home_;
  Environment process_;
  ManualMainQueue main_;
  BackgroundPool pool_{2};
  std::shared_ptr<ProgramRunner> runner_ = std::make_shared<ProgramRunner>(main_, pool_);
  std::shared_ptr<NotingDesktop> desktop_ = std::make_shared<NotingDesktop>();
  std::map<AgentProvider, std::string> custom_;
  Changes changes_{main_};
  RuntimePrograms programs_;
  std::shared_ptr<InstalledRuntimes> runtimes_;
};

}  // namespace vantrell::tests
