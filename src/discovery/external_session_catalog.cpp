#include "discovery/external_session_catalog.h"

#include <algorithm>
#include <array>
#include <expected>
#include <filesystem>
#include <map>
#include <set>
#include <sys/stat.h>
#include <utility>

#include "discovery/json_line_rpc_probe.h"
#include "discovery/session_listings.h"
#include "platform/files/files.h"
#include "platform/queues/weakly.h"
#include "platform/text/text.h"
#include "platform/values/json_objects.h"
#include "platform/values/url.h"
#include "runtimes/catalog/runtime_locator.h"

namespace vantrell {

namespace {

using enum AgentProvider;
using Kind = ExternalSessionDiscoveryState::Kind;
using Sessions = std::vector<ExternalProviderSession>;
using Executables = std::map<AgentProvider, std::string>;

struct Scanned {
  AgentProvider provider;
  std::string_view missing;  // what is told where its program is not installed
};
constexpr auto scanned =
    std::to_array<Scanned>({{grok, "Install Grok Build to discover its sessions."},
                            {codex, "Install Codex to discover its tasks."},
                            {kimi, "Install Kimi Code to discover its sessions."},
                            {glm, "Install OpenCode to discover GLM sessions."}});

// ---- in the background --------------------------------------------------------------------------

Executables findExecutables(const std::map<AgentProvider, std::optional<std::string>>& custom) {
  Executables found;
  for (const auto& [provider, path] : custom) {
    if (auto program = findRuntime(provider, path)) found[provider] = *std::move(program);
  }
  return found;
}

std::optional<Date> modifiedAt(const std::string& folder) {
  struct stat info{};
  if (::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return std::nullopt;
  return Date::sinceUnixEpoch(static_cast<double>(info.st_mtim.tv_sec) +
                              static_cast<double>(info.st_mtim.tv_nsec) / 1e9);
}

/// A folder of Grok's store: the sessions of one project, each in a folder named by its id.
struct GrokProject {
  std::string folder;
  std::string path;  // of the project
  Date usedAt;
};

/// Those used last come first.
std::vector<GrokProject> grokProjects() {
  const auto environment = runtimeEnvironment(grok);
  const auto home = environment.find("GROK_HOME");
  const auto store =
      (home == environment.end() || home->second.empty() ? files::homeFolder() + "/.grok"
                                                         : files::expandingTilde(home->second)) +
      "/sessions";
  std::vector<GrokProject> projects;
  std::error_code error;
  for (std::filesystem::directory_iterator each(store, error), end; !error && each != end;
       each.increment(error)) {
    const auto folder = each->path().string();
    const auto usedAt = modifiedAt(folder);
    if (!usedAt) continue;
    constexpr std::size_t longestPath = 65'536;  // bytes
    const auto told = files::read(folder + "/.cwd", longestPath);
    auto path = std::string(text::trimmed(told ? *told : std::string()));
    if (path.empty()) path = percentDecoded(each->path().filename().string());
    if (files::isFolder(path)) projects.push_back({folder, path, *usedAt});
  }
  std::ranges::sort(projects, std::ranges::greater(), &GrokProject::usedAt);
  if (projects.size() > ExternalSessionCatalog::mostProjects) {
    projects.resize(ExternalSessionCatalog::mostProjects);
  }
  return projects;
}

/// What is recent and has its folder still, each session once, the newest first.
Sessions merged(const Sessions& all, Date now) {
  const Date cutOff = now - Seconds(ExternalSessionCatalog::recentTime);
  std::map<std::pair<AgentProvider, std::string>, ExternalProviderSession> kept;
  std::map<std::string, bool> folders;  // whether each is there
  for (const auto& session : all) {
    const bool isActive = session.activity == ExternalSessionActivity::active;
    if ((!isActive && session.updatedAt < cutOff) || !session.workspacePath.starts_with('/')) {
      continue;
    }
    const auto path = files::standardized(session.workspacePath);
    const auto [known, isNew] = folders.try_emplace(path, false);
    if (isNew) known->second = files::isFolder(path);
    if (!known->second) continue;
    const auto [place, isFirst] = kept.try_emplace({session.provider, session.sessionID}, session);
    if (!isFirst && place->second.updatedAt < session.updatedAt) place->second = session;
    place->second.workspacePath = files::standardized(place->second.workspacePath);
  }
  Sessions sorted;
  for (auto& [key, session] : kept) sorted.push_back(std::move(session));
  std::ranges::stable_sort(sorted, std::ranges::greater(), &ExternalProviderSession::updatedAt);
  std::map<AgentProvider, std::size_t> counts;
  std::erase_if(sorted, [&](const ExternalProviderSession& session) {
    return ++counts[session.provider] > ExternalSessionCatalog::mostSessions;
  });
  return sorted;
}

}  // namespace

// ---- a scan -------------------------------------------------------------------------------------

/// Main queue, but for what it posts to the pool.
class ExternalSessionCatalog::Scan : public std::enable_shared_from_this<Scan> {
 public:
  Scan(const Dependencies& given, std::vector<std::string> folders,
       std::function<void(ExternalSessionScanResult)> done)
      : core_(given), folders_(std::move(folders)), done_(std::move(done)) {}

  void begin() {
    std::map<AgentProvider, std::optional<std::string>> custom;
    for (const auto provider : {grok, codex, kimi, glm, claude}) {
      custom[provider] = core_.customExecutable(provider);
    }
    inBackground([custom] { return findExecutables(custom); },
                 [](Scan& self, const Executables& found) { self.scanAll(found); });
  }

 private:
  using Outcome = std::expected<Sessions, std::string>;

  /// Calls `then(scan, result)` with what `work` returns, while the scan is wanted.
  template <typename Work, typename Then>
  void inBackground(Work work, Then then) {
    core_.pool.post([&main = core_.main, work = std::move(work),
                     then = weakly(this, std::move(then))]() mutable {
      main.post([then = std::move(then), result = work()]() mutable { then(std::move(result)); });
    });
  }

  void scanAll(const Executables& found) {
    executables_ = found;
    report(claude, found.contains(claude)
                       ? ExternalSessionDiscoveryState{Kind::resumeOnly, 0,
                                                       "Claude supports resume by ID but has no "
                                                       "stable session-list interface."}
                       : unavailable("Install Claude Code to resume its sessions by ID."));
    report(local, unavailable("Local-model tasks already live in vantrell; there is no shared "
                              "external catalog."));
    report(tasklet, unavailable("Tasklet workflows do not expose a compatible local session "
                                "catalog."));
    for (const auto& [provider, missing] : scanned) {
      if (!found.contains(provider)) {
        report(provider, unavailable(missing));
        continue;
      }
      limits_[provider] = core_.main.after(providerLimit, [this, provider] { runOut(provider); });
    }
    for (const auto& [provider, path] : found) {
      if (provider == grok) scanGrok();
      if (provider == codex) scanCodex();
      if (provider == kimi) scanKimi();
      if (provider == glm) scanOpenCode(0);
    }
    endIfOver();
  }

  static ExternalSessionDiscoveryState unavailable(std::string_view reason) {
    return {Kind::unavailable, 0, std::string(reason)};
  }
  void report(AgentProvider provider, ExternalSessionDiscoveryState state) {
    reports_[provider] = {provider, std::move(state)};
  }

  bool isOver(AgentProvider provider) const { return reports_.contains(provider); }

  /// The provider's scan has ended; what it found before an error stays.
  void finish(AgentProvider provider, const std::optional<std::string>& error = {}) {
    if (isOver(provider)) return;
    report(provider, error ? ExternalSessionDiscoveryState{Kind::failed, 0, *error}
                           : ExternalSessionDiscoveryState{Kind::available, 0, {}});
    limits_.erase(provider);
    probes_.erase(provider);
    endIfOver();
  }

  void runOut(AgentProvider provider) {
    const bool hasFound = std::ranges::any_of(
        sessions_, [&](const ExternalProviderSession& each) { return each.provider == provider; });
    finish(provider,
           hasFound ? std::nullopt : std::optional(std::string(JSONLineRPCProbe::timedOut)));
  }

  void endIfOver() {
    for (const auto& each : scanned) {
      if (!isOver(each.provider)) return;
    }
    inBackground([all = std::move(sessions_), now = core_.main.now()] { return merged(all, now); },
                 [](Scan& self, Sessions kept) {
                   for (auto& [provider, report] : self.reports_) {
                     if (report.state.kind != Kind::available) continue;
                     report.state.count = static_cast<std::size_t>(
                         std::ranges::count(kept, provider, &ExternalProviderSession::provider));
                   }
                   self.done_({std::move(kept), std::move(self.reports_)});
                 });
  }

  void add(Sessions found) { std::ranges::move(found, std::back_inserter(sessions_)); }

  std::function<ProcessOptions()> options(AgentProvider provider,
                                          std::vector<std::string> arguments,
                                          std::string folder) const {
    return [provider, executable = executables_.at(provider), arguments = std::move(arguments),
            folder = std::move(folder)] {
      ProcessOptions options;
      options.executable = executable;
      options.arguments = arguments;
      options.environment = runtimeEnvironment(provider);
      options.workingFolder = folder.empty() ? files::homeFolder() : folder;
      return options;
    };
  }

  /// Runs a listing to its end; output and error are one text.
  template <typename Then>
  void list(AgentProvider provider, std::vector<std::string> arguments, std::string folder,
            Then then) {
    core_.runner->run({.options =
                           [made = options(provider, std::move(arguments), std::move(folder))] {
                             auto merged = made();
                             merged.mergeErrorIntoOutput = true;
                             return merged;
                           },
                       .limit = listingLimit,
                       .input = std::nullopt},
                      weakly(this, [provider, then = std::move(then)](
                                       Scan& self, const ProgramRunner::Outcome& outcome) {
                        if (!self.isOver(provider)) then(self, outcome);
                      }));
  }

  // ---- Grok -------------------------------------------------------------------------------------

  void scanGrok() {
    inBackground(grokProjects, [](Scan& self, std::vector<GrokProject> projects) {
      self.grokProjects_ = std::move(projects);
      self.listGrok(0);
    });
  }

  void listGrok(std::size_t index) {
    if (index == grokProjects_.size()) return finish(grok);
    const auto& project = grokProjects_[index];
    list(grok, {"sessions", "list", "--limit", "100"}, project.path,
         [index](Scan& self, const ProgramRunner::Outcome& outcome) {
           if (outcome.status != 0) return self.listGrok(index + 1);
           self.inBackground(
               [project = self.grokProjects_[index], output = text::repaired(outcome.output)] {
                 Sessions found;
                 for (const auto line : text::lines(output)) {
                   auto session = sessionListings::grokSession(line);
                   if (!session) continue;
                   session->workspacePath = project.path;
                   const auto usedAt = modifiedAt(project.folder + "/" + session->sessionID);
                   if (usedAt) session->updatedAt = *usedAt;
                   found.push_back(*std::move(session));
                 }
                 return found;
               },
               [index](Scan& scan, Sessions found) {
                 if (scan.isOver(grok)) return;
                 scan.add(std::move(found));
                 scan.listGrok(index + 1);
               });
         });
  }

  // ---- Codex and Kimi ---------------------------------------------------------------------------

  std::shared_ptr<JSONLineRPCProbe> probe(AgentProvider provider,
                                          std::vector<std::string> arguments) {
    auto made = std::make_shared<JSONLineRPCProbe>(core_.main, core_.pool);
    probes_[provider] = made;
    made->start(options(provider, std::move(arguments), ""));
    return made;
  }

  /// Asks, and goes on with the result; an error ends the provider's scan.
  template <typename Then>
  void ask(AgentProvider provider, std::string_view method, JsonObject params, Then then) {
    probes_.at(provider)->request(
        method, std::move(params),
        weakly(this, [provider, then = std::move(then)](
                         Scan& self, const std::expected<JsonObject, std::string>& result) {
          if (!result) return self.finish(provider, result.error());
          then(self, *result);
        }));
  }

  void scanCodex() {
    probe(codex, {"app-server"});
    ask(codex, "initialize",
        {{"clientInfo",
          JsonObject{{"name", "vantrell-session-inbox"}, {"title", "vantrell"}, {"version", "1"}}},
         {"capabilities", JsonObject{{"experimentalApi", true}}}},
        [](Scan& self, const JsonObject&) {
          self.probes_.at(codex)->write({{"jsonrpc", "2.0"}, {"method", "initialized"}});
          self.ask(codex, "thread/loaded/list", {}, [](Scan& scan, const JsonObject& result) {
            const auto* ids = json::array(result, "data");
            for (const auto& id : ids ? *ids : Json::Array()) {
              if (const auto* text = id.asText()) scan.loadedThreads_.insert(*text);
            }
            scan.listCodex({});
          });
        });
  }

  void listCodex(const std::optional<std::string>& cursor) {
    JsonObject params{{"limit", 100},
                      {"sortKey", "updated_at"},
                      {"sortDirection", "desc"},
                      {"sourceKinds", Json::Array{"cli", "vscode", "exec", "appServer"}},
                      {"archived", false}};
    json::setIfKnown(params, "cursor", cursor);
    ask(codex, "thread/list", std::move(params), [](Scan& self, const JsonObject& result) {
      const auto threads = json::objects(result, "data");
      for (const auto* thread : threads) {
        auto session = sessionListings::codexSession(*thread, self.loadedThreads_);
        if (session) self.sessions_.push_back(*std::move(session));
      }
      self.listedThreads_ += threads.size();
      const auto* next = json::text(result, "nextCursor");
      // A page without threads would be followed by the same one for ever.
      if (!next || threads.empty() || self.listedThreads_ >= mostThreads) {
        return self.finish(codex);
      }
      self.listCodex(*next);
    });
  }

  void scanKimi() {
    probe(kimi, {"acp"});
    ask(kimi, "initialize",
        {{"protocolVersion", 1},
         {"clientCapabilities",
          JsonObject{{"fs", JsonObject{{"readTextFile", false}, {"writeTextFile", false}}},
                     {"terminal", false}}},
         {"clientInfo", JsonObject{{"name", "vantrell-session-inbox"}, {"version", "1"}}}},
        [](Scan& self, const JsonObject&) {
          self.ask(kimi, "session/list", {}, [](Scan& scan, const JsonObject& result) {
            scan.add(sessionListings::parseACPSessions(result, kimi, "Kimi Code"));
            scan.finish(kimi);
          });
        });
  }

  // ---- OpenCode ---------------------------------------------------------------------------------

  /// At home, and then in each folder: it lists the sessions of the folder that it is run in.
  void scanOpenCode(std::size_t index) {
    const auto folder = index == 0 ? std::string() : folders_[index - 1];
    list(glm, {"session", "list", "--format", "json", "--max-count", "100"}, folder,
         [index](Scan& self, const ProgramRunner::Outcome& outcome) {
           auto listed = outcome.status == 0 ? sessionListings::openCodeSessions(outcome.output)
                                             : Outcome(std::unexpected(failureIn(outcome)));
           // A project may have gone; at home it says what is wrong.
           if (!listed && index == 0) return self.finish(glm, listed.error());
           if (listed) self.add(*std::move(listed));
           if (index == std::min(self.folders_.size(), mostFolders)) return self.finish(glm);
           self.scanOpenCode(index + 1);
         });
  }

  static std::string failureIn(const ProgramRunner::Outcome& outcome) {
    if (outcome.hasRunOut) return std::string(JSONLineRPCProbe::timedOut);
    const auto output = text::repaired(outcome.output);
    const auto trimmed = text::trimmed(output);
    return trimmed.empty() ? "The provider could not list sessions." : std::string(trimmed);
  }

  const Dependencies core_;
  const std::vector<std::string> folders_;
  const std::function<void(ExternalSessionScanResult)> done_;
  Executables executables_;
  Sessions sessions_;
  std::map<AgentProvider, ExternalSessionDiscoveryReport> reports_;
  std::map<AgentProvider, Timer> limits_;
  std::map<AgentProvider, std::shared_ptr<JSONLineRPCProbe>> probes_;
  std::vector<GrokProject> grokProjects_;
  std::set<std::string> loadedThreads_;
  std::size_t listedThreads_ = 0;
};

ExternalSessionCatalog::ExternalSessionCatalog(Dependencies dependencies)
    : core_(std::move(dependencies)) {}
ExternalSessionCatalog::~ExternalSessionCatalog() = default;

void ExternalSessionCatalog::discover(std::vector<std::string> projectFolders,
                                      Completion completion) {
  completions_.push_back(std::move(completion));
  if (scan_) return;
  scan_ = std::make_shared<Scan>(
      core_, std::move(projectFolders), [this](const ExternalSessionScanResult& result) {
        const auto ended = std::exchange(scan_, nullptr);  // until this call returns
        for (const auto& each : std::exchange(completions_, {})) each(result);
      });
  scan_->begin();
}

}  // namespace vantrell
