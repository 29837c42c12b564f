#include "platform/desktop/system_desktop.h"

#include "platform/files/files.h"
#include "platform/process/program_runner.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

constexpr std::chrono::seconds toolLimit{10};

/// $TERMINAL and the distribution's choice come before these.
constexpr std::string_view usualTerminals[] = {
    "xdg-terminal-exec", "gnome-terminal", "kgx",       "konsole", "xfce4-terminal",
    "mate-terminal",     "tilix",          "kitty",     "foot",    "alacritty",
    "wezterm",           "lxterminal",     "qterminal", "xterm"};

/// Starts its arguments in a session of their own, so that they do not end with this program. It
/// waits until that session is there: what is left of this script's group is killed at its end.
constexpr std::string_view startDetached =
    "setsid --fork sh -c 'echo; exec \"$@\" >/dev/null 2>&1 </dev/null' sh \"$@\" | read -r begun";

struct ClipboardTool {
  std::string_view session;  // the variable that says that it can work
  std::string_view program;
  std::vector<std::string> arguments;
};
const std::vector<ClipboardTool>& clipboardTools() {
  static const std::vector<ClipboardTool> tools{
      {"WAYLAND_DISPLAY", "wl-copy", {}},
      {"DISPLAY", "xclip", {"-selection", "clipboard"}},
      {"DISPLAY", "xsel", {"--clipboard", "--input"}},
  };
  return tools;
}

class NoDesktop final : public Desktop {
 public:
  void copy(const std::string&) override {}
  void openTerminal(const std::string&, Completion completion) override {
    completion(std::unexpected("There is no desktop."));
  }
};

}  // namespace

std::shared_ptr<Desktop> Desktop::none() {
  return std::make_shared<NoDesktop>();
}

std::shared_ptr<Desktop> SystemDesktop::ofThisSession(std::shared_ptr<ProgramRunner> runner) {
  return std::make_shared<SystemDesktop>(std::move(runner), currentEnvironment());
}

SystemDesktop::SystemDesktop(std::shared_ptr<ProgramRunner> runner, Environment environment)
    : runner_(std::move(runner)), environment_(std::move(environment)) {}

std::string_view SystemDesktop::variable(std::string_view name) const {
  const auto found = environment_.find(name);
  return found == environment_.end() ? std::string_view() : std::string_view(found->second);
}

std::optional<std::string> SystemDesktop::find(std::string_view program) const {
  if (program.starts_with('/')) {
    std::string path(program);
    return files::isExecutable(path) ? std::optional(path) : std::nullopt;
  }
  const std::string_view folders = variable("PATH");
  for (const auto folder : text::split(folders, ':')) {
    std::string path = std::string(folder) + "/" + std::string(program);
    if (folder.starts_with('/') && files::isExecutable(path)) return path;
  }
  return std::nullopt;
}

std::vector<std::string> SystemDesktop::terminalCommand() const {
  // The variable may hold arguments too.
  std::vector<std::string> named;
  for (const auto word : text::split(variable("TERMINAL"), ' ')) {
    if (!word.empty()) named.emplace_back(word);
  }
  if (!named.empty()) {
    if (auto path = find(named.front())) {
      named.front() = *std::move(path);
      return named;
    }
  }
  if (auto path = find("x-terminal-emulator")) return {*std::move(path)};
  for (const auto terminal : usualTerminals) {
    if (auto path = find(terminal)) return {*std::move(path)};
  }
  return {};
}

void SystemDesktop::copy(const std::string& text) {
  for (const auto& tool : clipboardTools()) {
    if (variable(tool.session).empty()) continue;
    const auto path = find(tool.program);
    if (!path) continue;
    ProcessOptions options;
    options.executable = *path;
    options.arguments = tool.arguments;
    options.environment = environment_;
    options.standardOutput = options.standardError = ProcessOptions::Output::null;
    // The tool leaves a copy of itself that serves the clipboard.
    options.endGroupWithLeader = false;
    runner_->run({.options = [options] { return options; }, .limit = toolLimit, .input = text},
                 [](const ProgramRunner::Outcome&) {});
    return;
  }
}

void SystemDesktop::openTerminal(const std::string& folder, Completion completion) {
  if (variable("DISPLAY").empty() && variable("WAYLAND_DISPLAY").empty()) {
    return completion(std::unexpected("This session has no display."));
  }
  auto command = terminalCommand();
  if (command.empty()) {
    return completion(
        std::unexpected("No terminal program was found. Name yours in the variable TERMINAL."));
  }
  ProcessOptions options;
  options.executable = "/bin/sh";
  options.arguments = {"-c", std::string(startDetached), "sh"};
  std::ranges::move(command, std::back_inserter(options.arguments));
  options.environment = environment_;
  options.workingFolder = folder.empty() ? files::homeFolder() : folder;
  options.standardOutput = options.standardError = ProcessOptions::Output::null;
  options.mayDetach = true;
  runner_->run({.options = [options] { return options; }, .limit = toolLimit, .input = {}},
               [completion = std::move(completion)](const ProgramRunner::Outcome& outcome) {
                 if (outcome.status == 0) return completion({});
                 completion(std::unexpected(outcome.output.empty()
                                                ? "The terminal program could not be started."
                                                : outcome.output));
               });
}

}  // namespace vantrell
