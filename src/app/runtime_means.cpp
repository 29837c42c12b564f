#include "app/runtime_means.h"

#include "platform/desktop/system_desktop.h"
#include "platform/process/login_shell.h"
#include "platform/process/program_runner.h"
#include "runtimes/catalog/runtime_locator.h"

namespace vantrell {

ExecutableChoice executableChoice(ExecutableChoice named, const UserDefaults& defaults) {
  return [named = std::move(named), &defaults](AgentProvider provider) {
    auto path = named ? named(provider) : std::nullopt;
    return path ? path : customExecutablePath(defaults, provider);
  };
}

RuntimeMeans runtimeMeans(std::shared_ptr<ProgramRunner> runner, BackgroundPool& pool,
                          ExecutableChoice choice) {
  RuntimeMeans means;
  means.runner = runner;
  means.pool = &pool;
  means.desktop = SystemDesktop::ofThisSession(runner);
  means.customExecutable = std::move(choice);
  means.readUserPath = [runner](std::function<void()> done) {
    loginShell::readFolders(*runner, loginShell::usersOwn(),
                            [done = std::move(done)](std::vector<std::string> folders) {
                              loginShell::keepFolders(std::move(folders));
                              done();
                            });
  };
  return means;
}

}  // namespace vantrell
