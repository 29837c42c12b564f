#include "shell/terminal/new_version.h"

#include <fmt/format.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/process/foreground_program.h"
#include "platform/terminal/terminal.h"
#include "records/values/application.h"
#include "shell/terminal/command.h"
#include "updates/update_installer.h"

namespace vantrell::shell {

namespace {

// The kernel says of this process's own program where it is now: in the work folder, whose name it
// has from the installation's.
std::string placeOfInstallation() {
  const auto work = files::parent(files::parent(terminal::programFolder()));
  auto name = files::lastComponent(work);  // ".NAME.update"
  constexpr std::string_view end = ".update";
  if (!name.starts_with('.') || !name.ends_with(end)) return {};
  return files::parent(work) + "/" + name.substr(1, name.size() - 1 - end.size());
}

void say(std::string_view text) {
  fmt::print(stderr, "vantrell: {}\n", text);
}

[[noreturn]] void replaceThisProcess(const std::string& program,
                                     const std::vector<std::string>& arguments) {
  std::vector<char*> words{const_cast<char*>(program.c_str())};
  for (const auto& each : arguments) words.push_back(const_cast<char*>(each.c_str()));
  words.push_back(nullptr);
  ::execv(program.c_str(), words.data());
  say(fmt::format("{} cannot be started.", program));
  ::_exit(exitStatus::failed);
}

}  // namespace

int startNewVersion(bool goesOn, const std::vector<std::string>& arguments,
                    const Environment& environment, int status) {
  const auto root = placeOfInstallation();
  const auto installation = Installation::of(root + "/bin");
  if (!installation) {
    say(installation.error());
    return exitStatus::failed;
  }
  const auto program = installation->program();
  const auto started = runInForeground(program, {"update", startedOption}, environment);
  if (started && started->code() == exitStatus::completed) {
    say(fmt::format("vantrell {} has taken the place of {}.", installation->release.version,
                    applicationVersion));
    UpdateInstaller::forgetPrevious(*installation);
  } else {
    const bool isBack = UpdateInstaller::goBack(*installation);
    say(fmt::format(
        "vantrell {} does not start ({}). {}", installation->release.version,
        started ? fmt::format("status {}", started->code()) : started.error().description,
        isBack ? fmt::format("vantrell {} is in its place again.", applicationVersion)
               : fmt::format("The version before lies in {}.", installation->workFolder())));
    status = exitStatus::failed;
  }
  if (goesOn) replaceThisProcess(program, arguments);
  return status;
}

}  // namespace vantrell::shell
