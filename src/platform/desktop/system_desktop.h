// The desktop of a session that has no window of ours: the clipboard by the session's own tools,
// and the user's terminal program. A terminal lives on after this program; the clipboard does not,
// unless the session keeps it.
#pragma once

#include "platform/desktop/desktop.h"
#include "platform/process/process.h"

namespace vantrell {

class ProgramRunner;

class SystemDesktop final : public Desktop {
 public:
  /// The desktop of the session that this process belongs to.
  static std::shared_ptr<Desktop> ofThisSession(std::shared_ptr<ProgramRunner> runner);
  /// The environment is the one that the tools get and that says which session this is.
  SystemDesktop(std::shared_ptr<ProgramRunner> runner, Environment environment);

  void copy(const std::string& text) override;
  void openTerminal(const std::string& folder, Completion completion) override;

 private:
  std::optional<std::string> find(std::string_view program) const;
  std::string_view variable(std::string_view name) const;
  std::vector<std::string> terminalCommand() const;

  std::shared_ptr<ProgramRunner> runner_;
  Environment environment_;
};

}  // namespace vantrell
