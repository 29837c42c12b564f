#include "shell/terminal/runtime_survey.h"

#include <cstdio>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include "app/user_state.h"
#include "app/vantrell_app.h"
#include "engine/providers/model_discovery.h"
#include "platform/text/text.h"
#include "runtimes/catalog/locators.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/codex/codex_discovery.h"
#include "runtimes/local/local_runtime_service.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/terminal_style.h"
#include "shell/terminal/user_path.h"

namespace vantrell::shell {

namespace {

/// A wait that is over sooner needs no word.
constexpr std::chrono::seconds momentToWait{1};

/// One line on standard error that says who has not answered yet, and goes away by itself.
class WaitingLine {
 public:
  WaitingLine(MainQueue& main, const Environment& environment)
      : style_(TerminalStyle::of(STDERR_FILENO, environment)) {
    if (style_.isLive()) {
      start_ = main.after(momentToWait, [this] {
        isShown_ = true;
        show();
      });
    }
  }
  ~WaitingLine() { erase(); }
  WaitingLine(const WaitingLine&) = delete;
  WaitingLine& operator=(const WaitingLine&) = delete;

  void waitFor(std::vector<std::string> names) {
    names_ = std::move(names);
    if (isShown_) show();
  }

 private:
  void show() {
    erase();
    std::fputs(style_.dim(fmt::format("Waiting for {} …", fmt::join(names_, ", "))).c_str(),
               stderr);
    std::fflush(stderr);
  }
  void erase() {
    if (isShown_) std::fputs("\r\x1b[K", stderr);
  }

  TerminalStyle style_;
  Timer start_;
  std::vector<std::string> names_;
  bool isShown_ = false;
};

/// What cannot be read is told, and does not keep anybody from looking.
std::unique_ptr<UserDefaults> storedOrNone() {
  auto stored = VantrellApp::defaultsForReading();
  if (stored) return std::move(*stored);
  complain(fmt::format("The paths that are set for programs do not count now. {}", stored.error()));
  return UserDefaults::inMemory();
}

}  // namespace

RuntimeSurvey::RuntimeSurvey()
    : defaults_(storedOrNone()),
      runner_(std::make_shared<ProgramRunner>(loop_, pool_)),
      means_(runtimeMeans(runner_, pool_, executableChoice({}, *defaults_))),
      desk_(std::make_shared<InstalledRuntimes>(changes_, means_)),
      secrets_(UserFolders{}.orOwn().secretStore(), loop_, pool_),
      services_(loop_, *defaults_, secrets_),
      connectors_({.main = loop_,
                   .pool = pool_,
                   .defaults = *defaults_,
                   .http = services_.http(),
                   .webhook = services_.webhook(),
                   .customExecutable = means_.customExecutable}) {}

void RuntimeSurvey::waitForAnswers() {
  const auto watch = changes_.observe([this](const Change&) {
    if (isRunning_ && !isWaiting()) loop_.quit();
  });
  if (!isWaiting()) return;
  isRunning_ = true;
  loop_.run();
  isRunning_ = false;
}

std::function<void()> RuntimeSurvey::question(std::string name) {
  waitsFor_.insert(name);
  return [this, name = std::move(name)] {
    waitsFor_.erase(waitsFor_.find(name));
    changes_.announce({.kind = Change::Kind::runtimesChanged});
  };
}

void RuntimeSurvey::askServices() {
  services_.prepare(AgentProvider::local, question("model servers"));
  services_.prepare(AgentProvider::tasklet, question("the keyring"));
}

void RuntimeSurvey::askAll(const Environment& environment) {
  WaitingLine line(loop_, environment);
  const auto update = [&] {
    std::vector<std::string> names;
    if (desk_->isReadingUserPath()) names.emplace_back("the PATH of your shell");
    for (const auto provider : allAgentProviders) {
      if (desk_->isAsking(provider)) names.emplace_back(programName(provider));
    }
    names.insert(names.end(), waitsFor_.begin(), waitsFor_.end());
    line.waitFor(std::move(names));
  };
  const auto watch = changes_.observe([&](const Change&) { update(); });
  askServices();
  desk_->refreshAll();
  waitForAnswers();
}

void RuntimeSurvey::ask(AgentProvider provider) {
  desk_->refresh(provider);
  waitForAnswers();
}

std::optional<std::string> RuntimeSurvey::find(AgentProvider provider) {
  return findWithUserPath(loop_, *desk_,
                          [&] { return findRuntime(provider, means_.customExecutable(provider)); });
}

std::optional<std::string> RuntimeSurvey::unusableCustomPath(AgentProvider provider) const {
  const auto custom = means_.customExecutable(provider);
  if (!custom) return std::nullopt;
  std::string path = files::expandingTilde(text::trimmed(*custom));
  if (path.empty() || files::isExecutable(path)) return std::nullopt;
  return path;
}

views::ProviderFacts RuntimeSurvey::facts(AgentProvider provider) const {
  return {.provider = provider,
          .status = status(provider),
          .unusableCustomPath = unusableCustomPath(provider),
          .glmModel = OpenCodeLocator::configuredModel(*defaults_),
          .local = localRuntime(),
          .hasHarness = status(AgentProvider::grok).isInstalled(),
          .localKind = LocalRuntimeService::configuredKind(*defaults_),
          .localURL = LocalRuntimeService::configuredURL(*defaults_),
          .hasWebhook = webhook().isConfigured(),
          .webhookProblem = webhook().problem()};
}

RuntimeSurvey::Models RuntimeSurvey::askModels(AgentProvider provider) {
  Models models;
  ProviderConnectorContext context;
  context.workspacePath = files::homeFolder();
  if (provider == AgentProvider::local) {
    services_.prepare(provider, question("model servers"));
    waitForAnswers();
    context.localRuntimeStatus = localRuntime();
    models.areReported = localRuntime().connection() != nullptr;
  } else if (tellsModels(provider) && find(provider)) {
    auto answered = question(std::string(programName(provider)));
    const bool isAsked = discoverModels(provider, loop_, means_, context.workspacePath,
                                        [&models, answered](DiscoveredModels found) {
                                          // The provider's own choice alone is what is known when
                                          // the program did not tell.
                                          models.areReported = found.models.size() > 1;
                                          if (models.areReported)
                                            models.options = std::move(found.models);
                                          models.usage = std::move(found.usage);
                                          answered();
                                        });
    if (!isAsked) answered();
    waitForAnswers();
  }
  if (models.options.empty()) {
    models.options = connectors_.connector(provider).modelOptions(context);
  }
  return models;
}

std::expected<std::string, AgentError> RuntimeSurvey::resetCodexUsage() {
  const auto program = find(AgentProvider::codex);
  std::expected<std::string, AgentError> outcome =
      std::unexpected(AgentError("The Codex CLI is not installed."));
  if (!program) return outcome;
  CodexDiscovery::consumeUsageReset({.executable = *program,
                                     .workspacePath = files::homeFolder(),
                                     .environment = CodexLocator::subscriptionEnvironment()},
                                    loop_, pool_,
                                    [&outcome, answered = question("codex")](auto result) {
                                      outcome = std::move(result);
                                      answered();
                                    });
  waitForAnswers();
  return outcome;
}

}  // namespace vantrell::shell
