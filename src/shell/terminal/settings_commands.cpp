// `vantrell settings`: shows what is set and where everything is kept; changes what a person may
// change; takes all conversations out of the program and into it.
#include <fmt/format.h>

#include "app/conversation_transfer.h"
#include "engine/core/selection.h"
#include "engine/tasks/settings_operations.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "runtimes/local/local_runtime_service.h"
#include "runtimes/tasklet/tasklet_webhook.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/terminal_text.h"
#include "views/transfer_words.h"

namespace vantrell {

// The words of the JSON.
constexpr auto rawTexts(SecretStore::Kind) {
  return std::to_array<std::string_view>({"keyring", "files", "memory"});
}
constexpr auto rawTexts(SecretError::Kind) {
  return std::to_array<std::string_view>({"missing", "locked", "timedOut", "denied", "failed"});
}

}  // namespace vantrell

namespace vantrell::shell {

namespace {

/// The setting that the first word names.
std::expected<const SettingRow*, UsageError> namedSetting(const CommandContext& context) {
  if (const auto* row = settingNamed(context.word(0))) return row;
  std::vector<std::string_view> names;
  for (const SettingRow& row : settingRows()) names.push_back(row.name);
  return usageError(fmt::format("There is no setting \"{}\".{} \"vantrell settings\" lists them.",
                                onOneLine(context.word(0)), suggestion(context.word(0), names)));
}

// ---- showing ------------------------------------------------------------------------------------

/// What can be said of the secret setting without its value.
struct WebhookState {
  std::string words;             // "set", "not set", or what is wrong
  std::optional<bool> isStored;  // nullopt where the secrets cannot be read
};
WebhookState webhookState(SecretStore& secrets) {
  const auto stored = secrets.read(std::string(TaskletConfiguration::secretService),
                                   std::string(TaskletConfiguration::secretAccount));
  if (!stored) return {stored.error().description, std::nullopt};
  if (!*stored) return {"not set", false};
  const bool isValid =
      text::isValidUtf8(**stored) && TaskletConfiguration::validatedWebhookURL(**stored);
  return {isValid ? "set" : "set, but not to an HTTPS address", true};
}

JsonObject asJson(const SettingRow& row, const UserDefaults& defaults, SecretStore& secrets) {
  const auto value = readSetting(row, defaults);
  const auto isStored = row.isSecret() ? webhookState(secrets).isStored : value.isStored;
  return {{"name", row.name},
          {"key", row.isSecret() ? Json() : Json(row.key)},
          {"value", value.text.empty() ? Json() : Json(value.text)},
          {"isStored", isStored ? Json(*isStored) : Json()},
          {"canBeSet", row.isSettable()}};
}

JsonObject allAsJson(const UserDefaults& defaults, SecretStore& secrets) {
  const UserFolders folders = UserFolders{}.orOwn();
  Json::Array settings;
  for (const SettingRow& row : settingRows()) settings.push_back(asJson(row, defaults, secrets));
  const auto status = secrets.status();
  return {{"settings", std::move(settings)},
          {"settingsFile", folders.defaultsPath()},
          {"dataFolder", folders.support},
          {"secrets",
           JsonObject{{"kind", rawText(status.kind)},
                      {"place", status.place},
                      {"state", status.problem ? rawText(status.problem->kind) : "ok"},
                      {"problem", status.problem ? Json(status.problem->description) : Json()}}}};
}

std::string allInWords(const UserDefaults& defaults, SecretStore& secrets,
                       const TerminalStyle& style) {
  const UserFolders folders = UserFolders{}.orOwn();
  std::string text = style.bold("Settings") + "\n";
  for (const SettingRow& row : settingRows()) {
    const auto value =
        row.isSecret() ? webhookState(secrets).words : readSetting(row, defaults).text;
    text += fmt::format("  {:<15} {:<12} {}\n", row.name, value.empty() ? "-" : onOneLine(value),
                        style.dim(row.meaning));
  }
  const auto status = secrets.status();
  return text + fmt::format("\n{}\n  settings  {}\n  data      {}\n  secrets   {}\n{}",
                            style.bold("Kept in"), folders.defaultsPath(), folders.support,
                            status.place, status.problem ? status.problem->description + "\n" : "");
}

/// Goes on with the secret store's answer, for which the desktop may take its time.
void askSecrets(CommandContext& context, std::function<std::string(SecretStore&)> ask,
                std::function<void(const std::string&)> then) {
  const auto answer = std::make_shared<std::string>();
  context.inBackground(
      [answer, ask = std::move(ask)] { *answer = ask(*UserFolders{}.orOwn().secretStore()); },
      [answer, then = std::move(then)] { then(*answer); });
}

void show(CommandContext& context) {
  auto opened = VantrellApp::defaultsForReading();
  if (!opened) return context.fail(opened.error());
  const std::shared_ptr<UserDefaults> defaults = *std::move(opened);
  const SettingRow* row = nullptr;
  if (!context.arguments.words.empty()) {
    const auto found = namedSetting(context);
    if (!found) return context.misused(found.error());
    row = *found;
  }
  const auto describe = [row, defaults, isJson = context.isJson(),
                         style = context.style()](SecretStore& secrets) {
    if (isJson) {
      return json::write(row ? asJson(*row, *defaults, secrets) : allAsJson(*defaults, secrets)) +
             "\n";
    }
    if (!row) return allInWords(*defaults, secrets, style);
    return (row->isSecret() ? webhookState(secrets).words : readSetting(*row, *defaults).text) +
           "\n";
  };
  askSecrets(context, describe, [&context](const std::string& words) {
    context.console.say(words);
    context.finish(exitStatus::completed);
  });
}

// ---- changing -----------------------------------------------------------------------------------

/// The two settings of the local server count together.
std::string_view adviceOnLocalRuntime(const SettingRow& row, const UserDefaults& defaults) {
  const auto kind = LocalRuntimeService::configuredKind(defaults);
  if (row.key == LocalRuntimeService::baseURLKey && kind == LocalRuntimeKind::automatic) {
    return "It is used once local-runtime is ollama, lm_studio or custom.\n";
  }
  if (row.key == LocalRuntimeService::kindKey && kind == LocalRuntimeKind::custom &&
      LocalRuntimeService::configuredURL(defaults).empty()) {
    return "It needs an address: vantrell settings local-url http://127.0.0.1:8080/v1\n";
  }
  return "";
}

void set(CommandContext& context, const SettingRow& row, std::string_view text) {
  if (row.isSecret()) {
    return context.misused(
        fmt::format("{0} is a secret, which a command line would show to other programs and to the "
                    "history of your shell. Type \"vantrell settings set {0}\": it asks for the "
                    "address, or reads it from standard input. Nothing was stored.",
                    row.name));
  }
  const auto value = checkedSetting(row, text);
  if (!value) return context.misused(value.error() + suggestion(text, row.choices));
  const auto defaults = VantrellApp::defaultsForReading();
  const bool isNewFullAccess = row.name == "mode" &&
                               *value == rawText(GrokPermissionMode::fullAccess) && defaults &&
                               readSetting(row, **defaults).text != *value;
  context.confirmFullAccess(isNewFullAccess, [&context, &row, value = *value] {
    context.open({}, [&](VantrellApp& app) {
      // A raise to full access was confirmed before the state was opened.
      const auto changed =
          app.model().settingsOperations().change(row.name, value, app.model().selection().key(),
                                                  SettingsOperations::FullAccess::confirmed);
      if (!changed) return context.finish(context.refused(changed.error()));
      context.console.write(fmt::format("{} is {} now.\n", row.name, onOneLine(value)));
      context.console.say(adviceOnLocalRuntime(row, app.defaults()));
      if (!changed->empty()) context.console.write(*changed + "\n");
      context.finish(exitStatus::completed);
    });
  });
}

void storeWebhook(CommandContext& context, const std::string& address, std::string_view done) {
  context.open({}, [&](VantrellApp& app) {
    app.model().settingsOperations().changeSecret(
        "tasklet-webhook", address, context.whileAlive([&context, done](const Result<>& saved) {
          context.finish(context.after(saved, [&] { context.console.write(done); }));
        }));
  });
}

/// The address is typed unseen or comes from the input, never from the command line.
void setWebhook(CommandContext& context) {
  context.askHidden("Address of the webhook (it is not shown): ", [&context](const auto& given) {
    const std::string address(text::trimmed(given.value_or("")));
    if (address.empty()) {
      return context.misused(
          "No address was given. Nothing was changed. To forget the webhook: vantrell "
          "settings reset tasklet-webhook");
    }
    if (!TaskletConfiguration::validatedWebhookURL(address)) {
      return context.misused("The address must begin with https://. Nothing was changed.");
    }
    storeWebhook(context, address, "tasklet-webhook is set now.\n");
  });
}

/// Both `settings NAME VALUE` and `settings set NAME [VALUE]`.
void showOrSet(CommandContext& context) {
  if (context.arguments.words.size() < 2) return show(context);
  if (context.isJson()) {
    return context.misused("--json shows settings. Leave it out to change one.");
  }
  const auto row = namedSetting(context);
  row ? set(context, **row, context.word(1)) : context.misused(row.error());
}

void setNamed(CommandContext& context) {
  const auto row = namedSetting(context);
  if (!row) return context.misused(row.error());
  if (context.arguments.words.size() == 2) return set(context, **row, context.word(1));
  if ((*row)->isSecret()) return setWebhook(context);
  context.misused("The value is missing: vantrell settings set NAME VALUE");
}

void reset(CommandContext& context) {
  const auto found = namedSetting(context);
  if (!found) return context.misused(found.error());
  const SettingRow& row = **found;
  if (!row.isSettable()) {
    return context.misused(fmt::format("{} can be seen here, not changed.", row.name));
  }
  if (row.isSecret()) return storeWebhook(context, "", "tasklet-webhook is not set any more.\n");
  context.open({}, [&](VantrellApp& app) {
    auto& operations = app.model().settingsOperations();
    context.finish(context.after(operations.reset(row.name, app.model().selection().key()), [&] {
      const auto value = operations.value(row).text;
      context.console.write(
          fmt::format("{} is {} again.\n", row.name, value.empty() ? "not set" : onOneLine(value)));
    }));
  });
}

void unlock(CommandContext& context) {
  askSecrets(
      context,
      [](SecretStore& secrets) {
        const auto unlocked = secrets.unlock();
        return unlocked ? "" : unlocked.error().description;
      },
      [&context](const std::string& problem) {
        if (!problem.empty()) return context.fail(problem);
        context.console.write("The secrets can be read.\n");
        context.finish(exitStatus::completed);
      });
}

// ---- all conversations --------------------------------------------------------------------------

void exportAll(CommandContext& context) {
  const auto exported = exportConversations(UserFolders{}.orOwn());
  if (!exported) return context.fail(fmt::format("{}. Nothing was exported.", exported.error()));
  if (exported->notice) context.complain(*exported->notice);
  if (context.arguments.words.empty() || context.word(0) == "-") {
    context.console.write(exported->document + "\n");
    return context.finish(exitStatus::completed);
  }
  const auto written = writeExport(context.absolute(context.word(0)), exported->document, true);
  if (!written) return context.finish(context.refused(written.error()));
  context.console.write(fmt::format("{} written to \"{}\".\n",
                                    views::countsOf(exported->threads, exported->workspaces),
                                    onOneLine(context.word(0))));
  context.finish(exitStatus::completed);
}

void replaceAll(CommandContext& context, ConversationImport& import, std::string_view document) {
  const auto imported = import.replace(document, context.main.now());
  if (const auto notice = import.takeNotice()) context.complain(*notice);
  if (!imported) return context.fail(fmt::format("{}. Nothing was imported.", imported.error()));
  context.console.write(fmt::format("{} imported. The conversations of before are in \"{}\".\n",
                                    views::countsOf(imported->threads, imported->workspaces),
                                    imported->quarantined));
  const auto warning = views::missingFoldersWarning(imported->withoutFolder);
  if (!warning.empty()) context.complain(warning);
  context.finish(exitStatus::completed);
}

void importDocument(CommandContext& context, std::string document) {
  auto begun = ConversationImport::begin({}, context.main.now());
  if (!begun) return context.fail(begun.error());
  const std::shared_ptr<ConversationImport> import = *std::move(begun);
  context.keep(import);
  if (const auto notice = import->takeNotice()) context.complain(*notice);
  const auto source = context.word(0) == "-" ? "standard input" : context.word(0);
  const auto present = import->present();
  const auto question =
      present ? views::importQuestion(*present, source)
              : fmt::format("{}. Replace what is there by the conversations of \"{}\"?",
                            present.error(), onOneLine(source));
  if (question.empty()) return replaceAll(context, *import, document);
  context.confirm(question, [&context, import, document = std::move(document)] {
    replaceAll(context, *import, document);
  });
}

void importAll(CommandContext& context) {
  if (context.word(0) == "-") {
    return context.readInput(
        [&context](std::string document) { importDocument(context, std::move(document)); });
  }
  auto content = files::read(context.absolute(context.word(0)));
  if (!content) {
    return context.fail(fmt::format("{}. Nothing was changed.", content.error().description));
  }
  importDocument(context, *std::move(content));
}

// ---- their help ---------------------------------------------------------------------------------

constexpr CommandOption importOptions[] = {yesOption};
constexpr Command settingsSubcommands[] = {
    {"set",
     "NAME [VALUE]",
     "store a value; a secret is asked for, or read from standard input",
     {},
     setNamed},
    {"reset", "NAME", "remove the stored value", {}, reset},
    {"unlock", "", "let the desktop ask for the password of a locked keyring", {}, unlock},
    {"export",
     "[FILE]",
     "write all conversations as one JSON document, without FILE to standard output",
     {},
     exportAll},
    {"import", "FILE", "replace the conversations by such a document; - reads standard input",
     importOptions, importAll},
};

constexpr Command commands[] = {
    {"settings", "[NAME [VALUE]]", "show or change what is set, and where it is kept", onlyJson,
     showOrSet,
     "Without a name: all settings, the folders and the state of the secrets. With a name: "
     "its\n"
     "value. With a value: stores it. A wrong value is answered with what the setting takes.",
     "Full Access takes a person at the terminal who types the words for it. import keeps the\n"
     "former conversations in a file; at a terminal it asks first, elsewhere it takes --yes.\n"
     "\n"
     "Examples:\n"
     "  vantrell settings workflow plan\n"
     "  vantrell settings kimi-path ~/bin/kimi\n"
     "  vantrell settings set tasklet-webhook < file-with-the-address",
     settingsSubcommands},
};

}  // namespace

std::span<const Command> settingsCommands() {
  return commands;
}

}  // namespace vantrell::shell
