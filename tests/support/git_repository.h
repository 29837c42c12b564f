// A repository of git's own for one test, with a fixed author and without the user's configuration,
// for the commands of the test and those of the code under test.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include "project/git.h"
#include "support/environment.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

class GitRepository : public TemporaryFolder {
 public:
  GitRepository() {
    process_.set("GIT_CONFIG_GLOBAL", "/dev/null");
    process_.set("GIT_CONFIG_SYSTEM", "/dev/null");
    for (const auto* who : {"AUTHOR", "COMMITTER"}) {
      process_.set("GIT_" + std::string(who) + "_NAME", "Ada");
      process_.set("GIT_" + std::string(who) + "_EMAIL", "ada@example.invalid");
      process_.set("GIT_" + std::string(who) + "_DATE", "2026-01-01T00:00:00Z");
    }
    process_.set("LC_ALL", "C.UTF-8");
    git({"init", "--quiet", "--initial-branch=main"});
  }

  /// Runs git here; the test fails where git does. Answers its output.
  std::string git(std::vector<std::string> arguments) const { return git(path(), arguments); }
  static std::string git(const std::string& folder, const std::vector<std::string>& arguments) {
    const GitResult result = runGit(folder, arguments);
    std::string shown;
    for (const auto& each : arguments) shown += each + " ";
    EXPECT_EQ(result.status, 0) << "git " << shown << "in " << folder << ": " << result.output;
    return result.output;
  }
  /// Commits all that is there. Answers the revision.
  std::string commit(std::string_view message = "A commit") const {
    git({"add", "--all"});
    git({"commit", "--quiet", "--allow-empty", "-m", std::string(message)});
    return runGit(path(), {"rev-parse", "HEAD"}).text();
  }

 private:
  Environment process_;
};

}  // namespace vantrell::tests
