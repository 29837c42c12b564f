#include "engine/providers/installed_runtimes.h"

#include <fmt/format.h>
#include <utility>

#include "platform/process/program_runner.h"
#include "platform/queues/weakly.h"
#include "runtimes/catalog/runtime_information.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/catalog/runtime_login.h"

namespace vantrell {

namespace {

/// Those with a program of their own, in the order of the table of providers.
constexpr AgentProvider ownPrograms[] = {AgentProvider::grok, AgentProvider::codex,
                                         AgentProvider::kimi, AgentProvider::glm,
                                         AgentProvider::claude};

const auto ignoreResult = [](const std::expected<void, std::string>&) {};

}  // namespace

InstalledRuntimes::InstalledRuntimes(Changes& changes, RuntimePrograms programs)
    : changes_(changes), programs_(std::move(programs)) {
  for (const auto provider : ownPrograms) entries_[provider];
  if (programs_.readUserPath) userPath_ = UserPath::unread;
}

// ---- what is known ------------------------------------------------------------------------------

const RuntimeInstallStatus& InstalledRuntimes::status(AgentProvider provider) const {
  static const RuntimeInstallStatus none = RuntimeInstallStatus::missing();
  const auto found = entries_.find(provider);
  return found == entries_.end() ? none : found->second.status;
}

const RuntimeLogin& InstalledRuntimes::login(AgentProvider provider) const {
  static const RuntimeLogin none;
  const auto found = entries_.find(provider);
  return found == entries_.end() ? none : found->second.login;
}

bool InstalledRuntimes::isAsking() const {
  return userPath_ == UserPath::reading ||
         std::ranges::any_of(entries_, [](const auto& each) { return each.second.isAsking; });
}

bool InstalledRuntimes::isAsking(AgentProvider provider) const {
  const auto found = entries_.find(provider);
  return found != entries_.end() && found->second.isAsking;
}

InstalledRuntimes::Entry* InstalledRuntimes::find(AgentProvider provider) {
  const auto found = entries_.find(provider);
  return found == entries_.end() ? nullptr : &found->second;
}

std::optional<std::string> InstalledRuntimes::executable(AgentProvider provider) const {
  const auto custom = programs_.customExecutable(provider);
  return findRuntime(provider, custom);
}

void InstalledRuntimes::publish(AgentProvider provider, RuntimeInstallStatus status) {
  entries_.at(provider).status = std::move(status);
  announce();
}

void InstalledRuntimes::announce() {
  changes_.mark(topics::runtimes);
}

// ---- looking ------------------------------------------------------------------------------------

void InstalledRuntimes::refresh(AgentProvider provider) {
  Entry* entry = find(provider);
  if (!entry) return;
  const int refresh = ++entry->refreshes;
  entry->isAsking = false;
  const auto path = executable(provider);
  if (!path) {
    return publish(provider, userPath_ == UserPath::reading ? RuntimeInstallStatus()
                                                            : RuntimeInstallStatus::missing());
  }
  entry->isAsking = programs_.runner != nullptr;
  publish(provider, RuntimeInstallStatus::installed(*path));
  if (!programs_.runner) return;
  inspectRuntime(*programs_.runner, provider, *path,
                 weakly(this, [provider, refresh, path = *path](
                                  InstalledRuntimes& self, const RuntimeInspection& inspection) {
                   Entry& current = self.entries_.at(provider);
                   if (current.refreshes != refresh) return;
                   current.isAsking = false;
                   auto status = RuntimeInstallStatus::installed(path);
                   status.version = inspection.version;
                   status.signedIn = inspection.signedIn;
                   status.hasRunOut = inspection.hasRunOut;
                   status.hasFailed = inspection.hasFailed;
                   self.publish(provider, std::move(status));
                 }));
}

void InstalledRuntimes::refresh(const std::vector<AgentProvider>& providers) {
  // Before the first announcement, or it would look as if the last answer had come.
  for (const auto provider : providers) entries_.at(provider).isAsking = true;
  for (const auto provider : providers) refresh(provider);
}

void InstalledRuntimes::refreshAll() {
  if (userPath_ != UserPath::known) {
    readUserPath(weakly(this, [](InstalledRuntimes& self) {
      // The user's own folders are searched last, so they change nothing for those that were found.
      std::vector<AgentProvider> rest;
      for (const auto provider : ownPrograms) {
        if (!self.status(provider).isInstalled()) rest.push_back(provider);
      }
      self.refresh(rest);
    }));
  }
  refresh({std::begin(ownPrograms), std::end(ownPrograms)});
}

void InstalledRuntimes::readUserPath(std::function<void()> done) {
  if (userPath_ == UserPath::known) return done();
  whenUserPathIsKnown_.push_back(std::move(done));
  if (std::exchange(userPath_, UserPath::reading) == UserPath::reading) return;
  programs_.readUserPath(weakly(this, [](InstalledRuntimes& self) { self.userPathRead(); }));
}

void InstalledRuntimes::userPathRead() {
  userPath_ = UserPath::known;
  for (const auto& done : std::exchange(whenUserPathIsKnown_, {})) done();
  announce();
}

void InstalledRuntimes::noteMissing(AgentProvider provider) {
  Entry* entry = find(provider);
  if (!entry) return;
  ++entry->refreshes;
  entry->isAsking = false;
  publish(provider, RuntimeInstallStatus::missing());
}

// ---- signing in ---------------------------------------------------------------------------------

void InstalledRuntimes::logInInBackground(AgentProvider provider) {
  Entry& entry = entries_.at(provider);
  if (entry.login.isRunning || !programs_.runner) return;
  const auto path = executable(provider);
  if (!path) return noteMissing(provider);
  entry.login = {.isRunning = true, .failure = {}};
  failure_.reset();
  announce();
  runRuntime(*programs_.runner, provider, *path, loginFlow(provider)->arguments, std::nullopt,
             weakly(this, [provider](InstalledRuntimes& self, const RuntimeAnswer& answer) {
               self.loginEnded(provider, answer.status, answer.text);
             }));
}

void InstalledRuntimes::loginEnded(AgentProvider provider, int status, const std::string& output) {
  const RuntimeLoginFlow& flow = *loginFlow(provider);
  RuntimeLogin login;
  if (status != 0) {
    // A program that could not be started has said nothing: the output is the system's word.
    const bool quotes = !output.empty() && (flow.saysWhy || status < 0);
    login.failure = quotes ? output : std::string(flow.failure);
  }
  entries_.at(provider).login = login;
  failure_ = login.failure;
  announce();
  refresh(provider);
}

void InstalledRuntimes::logInInTerminal(AgentProvider provider) {
  const auto path = executable(provider);
  if (!path) return noteMissing(provider);
  copyCommandAndOpenTerminal(loginCommandLine(*loginFlow(provider), *path));
}

// ---- the user's terminal ------------------------------------------------------------------------

void InstalledRuntimes::copyCommandAndOpenTerminal(const std::string& command) {
  programs_.desktop->copy(command);
  // The command lies on the clipboard, whatever became of the window.
  programs_.desktop->openTerminal("", ignoreResult);
}

void InstalledRuntimes::copyInstallCommandAndOpenTerminal() {
  copyCommandAndOpenTerminal(std::string(installCommand(AgentProvider::grok)));
}

void InstalledRuntimes::openProjectInTerminal(const std::string& folder) {
  failure_.reset();
  programs_.desktop->openTerminal(
      folder,
      weakly(this, [](InstalledRuntimes& self, const std::expected<void, std::string>& opened) {
        if (opened) return;
        self.failure_ = fmt::format("Could not open Terminal: {}", opened.error());
        self.announce();
      }));
}

}  // namespace vantrell
