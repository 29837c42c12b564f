// `vantrell sessions`: what the agents' own programs know, and its import.
#include <fmt/format.h>

#include "discovery/session_import.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

using Kind = ExternalSessionDiscoveryState::Kind;

JsonObject asJson(const ExternalProviderSession& session) {
  const auto time = [](Date date) {
    return date == Date::distantPast() ? Json() : Json(date.secondsSinceReference());
  };
  return {{"provider", rawText(session.provider)},
          {"sessionID", session.sessionID},
          {"title", session.title},
          {"folder", session.workspacePath},
          {"activity", rawText(session.activity)},
          {"source", session.sourceLabel},
          {"createdAt", time(session.createdAt)},
          {"updatedAt", time(session.updatedAt)}};
}

// The words for Kind.
constexpr std::string_view kinds[] = {"available", "resume only", "unavailable", "failed",
                                      "not scanned"};

std::string_view wordOf(Kind kind) {
  return kinds[static_cast<std::size_t>(kind)];
}

JsonObject asJson(const ExternalSessionDiscoveryReport& report) {
  const auto& [kind, count, reason] = report.state;
  return {{"provider", rawText(report.provider)},
          {"state", wordOf(kind)},
          {"sessions", kind == Kind::available ? Json(static_cast<std::int64_t>(count)) : Json()},
          {"reason", reason.empty() ? Json() : Json(reason)}};
}

Outcome showSessions(CommandContext& context, const ExternalSessionScanResult& result) {
  const auto cells = [&](const ExternalProviderSession& session) -> std::vector<TableCell> {
    const bool isActive = session.activity == ExternalSessionActivity::active;
    return {{session.sessionID},
            {session.sourceLabel},
            {std::string(rawText(session.activity)), isActive ? look::yellow : nullptr},
            {ago(session.updatedAt, context.main.now()), look::dim},
            {withTilde(session.workspacePath), look::dim},
            {session.title}};
  };
  return context.showList(
      result.sessions,
      TextTable({{"SESSION"}, {"OF"}, {"STATE"}, {"USED"}, {"FOLDER", 20}, {"TITLE", 20}}),
      [](const ExternalProviderSession& session) { return asJson(session); }, cells,
      "No program knows a session of the last seven days. To see why: vantrell sessions "
      "reports\n");
}

Outcome showReports(CommandContext& context, const ExternalSessionScanResult& result) {
  std::vector<ExternalSessionDiscoveryReport> reports;
  for (const auto& [provider, report] : result.reports) reports.push_back(report);
  const auto cells = [&](const ExternalSessionDiscoveryReport& report) -> std::vector<TableCell> {
    const auto& [kind, count, reason] = report.state;
    return {{ProviderRegistry::descriptor(report.provider).shortLabel},
            {std::string(wordOf(kind)), kind == Kind::failed ? look::red : nullptr},
            {kind == Kind::available ? counted(count, "session") : reason}};
  };
  return context.showList(
      reports, TextTable({{"PROVIDER"}, {"STATE"}, {"WHAT", 30}}),
      [](const ExternalSessionDiscoveryReport& report) { return asJson(report); }, cells, "");
}

template <Outcome (*show)(CommandContext&, const ExternalSessionScanResult&)>
void scan(CommandContext& context) {
  context.open({}, [&](VantrellApp& app) {
    app.sessionImport().lookForSessions(
        context.whileAlive([&context](const ExternalSessionScanResult& result) {
          context.finish(show(context, result));
        }));
  });
}

void import(CommandContext& context) {
  context.open({}, [&](VantrellApp& app) {
    SessionImport& sessions = app.sessionImport();
    sessions.refreshExternalSessions(context.whileAlive([&context, &sessions] {
      const auto count = sessions.externalSessionLastImportedCount();
      for (const auto& [provider, report] : sessions.externalSessionReports()) {
        if (report.state.kind != Kind::failed) continue;
        context.complain(fmt::format("{}: {}", rawText(provider), onOneLine(report.state.reason)));
      }
      context.finish(context.report(JsonObject{{"imported", static_cast<std::int64_t>(count)}},
                                    count == 0
                                        ? std::string("Nothing new was found.\n")
                                        : fmt::format("{} imported. To see them: vantrell tasks\n",
                                                      counted(count, "session"))));
    }));
  });
}

constexpr Command sessionSubcommands[] = {
    {"import", "", "make a task of each that is new", onlyJson, import,
     "A task that was imported holds the session's ID alone: its first prompt goes on with the\n"
     "session in its own program. \"vantrell serve\" imports by itself while the setting\n"
     "session-import is on."},
    {"reports", "", "what each program answered", onlyJson, scan<showReports>},
};

constexpr Command commands[] = {
    {"sessions", "", "sessions that you have begun in the agents' own programs", onlyJson,
     scan<showSessions>,
     "Asks Grok Build, Codex, Kimi Code and OpenCode for the sessions of the last seven days.\n"
     "Nothing is changed.",
     "", sessionSubcommands},
};

}  // namespace

std::span<const Command> sessionCommands() {
  return commands;
}

}  // namespace vantrell::shell
