// `vantrell settings`: shows what is set and where everything is kept; changes what a person may
// change; takes all conversations out of the program and into it.
#include <fmt/format.h>

#include "app/conversation_transfer.h"
#include "engine/core/selection.h"
#include "engine/core/settings.h"
#include "engine/tasks/settings_operations.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "runtimes/local/local_runtime_service.h"
#include "runtimes/tasklet/tasklet_webhook.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/setting_table.h"
#include "shell/terminal/terminal_text.h"
#include "views/transfer_words.h"

namespace vantrell::shell {

namespace {

std::string_view nameOf(SecretStore::Kind kind) {
  return kind == SecretStore::Kind::files ? "files" : "keyring";
}

std::string_view stateOf(const SecretStore::Status& status) {
  if (!status.problem) return "ok";
  switch (status.problem->kind) {
    case SecretError::Kind::missing: return "missing";
    case SecretError::Kind::locked: return "locked";
    case SecretError::Kind::timedOut: return "timedOut";
    case SecretError::Kind::denied: return "denied";
    case SecretError::Kind::failed: break;
  }
  return "failed";
}

/// Of the secret setting: "set", "not set", or what else there is to say without its value. The
/// error is the secret store's sentence.
std::expected<std::string, std::string> webhookState(SecretStore& secrets) {
  const auto stored = secrets.read(std::string(TaskletConfiguration::secretService),
                                   std::string(TaskletConfiguration::secretAccount));
  if (!stored) return std::unexpected(stored.error().description);
  if (!*stored) return "not set";
  if (text::isValidUtf8(**stored) && TaskletConfiguration::validatedWebhookURL(**stored)) {
    return "set";
  }
  return "set, but not to an HTTPS address";
}

// ---- showing ------------------------------------------------------------------------------------

Json asJson(const SettingRow& row, const UserDefaults& defaults) {
  const auto value = readSetting(row, defaults);
  return JsonObject{{"name", row.name},
                    {"key", row.key},
                    {"value", value.text.empty() ? Json() : Json(value.text)},
                    {"isStored", value.isStored},
                    {"canBeSet", row.isSettable()}};
}

/// Its value is not shown.
Json secretAsJson(const SettingRow& row, SecretStore& secrets) {
  const auto state = webhookState(secrets);
  return JsonObject{{"name", row.name},
                    {"key", nullptr},
                    {"value", nullptr},
                    {"isStored", state ? Json(*state != "not set") : Json()},
                    {"canBeSet", true}};
}

std::string allAsJson(const UserFolders& folders, const UserDefaults& defaults,
                      SecretStore& secrets) {
  Json::Array settings;
  for (const SettingRow& row : settingRows()) {
    settings.push_back(row.isSecret() ? secretAsJson(row, secrets) : asJson(row, defaults));
  }
  const auto status = secrets.status();
  JsonObject all{
      {"settings", std::move(settings)},
      {"settingsFile", folders.defaultsPath()},
      {"dataFolder", folders.support},
      {"secrets",
       JsonObject{{"kind", nameOf(status.kind)},
                  {"place", status.place},
                  {"state", stateOf(status)},
                  {"problem", status.problem ? Json(status.problem->description) : Json()}}}};
  return json::write(all) + "\n";
}

std::string settingsInWords(const UserFolders& folders, const UserDefaults& defaults,
                            const TerminalStyle& style) {
  std::string text = style.bold("Settings") + "\n";
  for (const SettingRow& row : settingRows()) {
    if (row.isSecret()) continue;
    const auto [value, isStored] = readSetting(row, defaults);
    const auto cell = fmt::format("{:<12}", value.empty() ? "-" : onOneLine(value));
    text += fmt::format("  {:<15} {} {}\n", row.name, isStored ? cell : style.dim(cell),
                        style.dim(row.meaning));
  }
  return text + fmt::format("\n{}\n  {:<15} {}\n  {:<15} {}\n", style.bold("Kept in"), "settings",
                            folders.defaultsPath(), "data", folders.support);
}

std::string secretsInWords(SecretStore& secrets, const TerminalStyle& style) {
  const auto status = secrets.status();
  std::string text =
      fmt::format("  {:<15} {}{}\n", "secrets", status.place,
                  status.kind == SecretStore::Kind::files ? " (owner-only files)" : "");
  if (status.problem) return text + fmt::format("  {:<15} {}\n", "", status.problem->description);
  text += fmt::format("\n{}\n", style.bold("Secrets"));
  for (const SettingRow& row : settingRows()) {
    if (!row.isSecret()) continue;
    const auto state = webhookState(secrets);
    text += fmt::format("  {:<15} {:<12} {}\n", row.name, state ? *state : state.error(),
                        style.dim(row.meaning));
  }
  return text;
}

/// What the secret store says: the desktop may take its time.
void askSecrets(CommandContext& context, std::function<std::string(SecretStore&)> ask) {
  const auto answer = std::make_shared<std::string>();
  context.inBackground(
      [answer, ask = std::move(ask)] { *answer = ask(*UserFolders{}.orOwn().secretStore()); },
      [&context, answer] {
        context.console.say(*answer);
        context.finish(exitStatus::completed);
      });
}

void show(CommandContext& context) {
  const UserFolders folders = UserFolders{}.orOwn();
  auto opened = VantrellApp::defaultsForReading();
  if (!opened) return context.fail(opened.error());
  const std::shared_ptr<UserDefaults> defaults = *std::move(opened);
  const bool isJson = context.isJson();
  if (context.arguments.words.empty()) {
    if (!isJson) {
      // Shown before the secret store has answered.
      context.console.say(settingsInWords(folders, *defaults, context.style()));
    }
    return askSecrets(context, [isJson, folders, defaults, style = context.style()](auto& secrets) {
      return isJson ? allAsJson(folders, *defaults, secrets) : secretsInWords(secrets, style);
    });
  }
  const auto found = findSetting(context.word(0));
  if (!found) return context.misused(found.error());
  const SettingRow& row = **found;
  if (row.isSecret()) {
    return askSecrets(context, [isJson, &row](auto& secrets) {
      if (isJson) return json::write(secretAsJson(row, secrets)) + "\n";
      const auto state = webhookState(secrets);
      return (state ? *state : state.error()) + "\n";
    });
  }
  context.console.write(
      (isJson ? json::write(asJson(row, *defaults)) : readSetting(row, *defaults).text) + "\n");
  context.finish(exitStatus::completed);
}

// ---- changing -----------------------------------------------------------------------------------

/// The two settings of the local server count together.
std::string_view adviceOnLocalRuntime(const SettingRow& row, const UserDefaults& defaults) {
  const auto kind = LocalRuntimeService::configuredKind(defaults);
  const bool hasURL = !LocalRuntimeService::configuredURL(defaults).empty();
  if (row.key == LocalRuntimeService::baseURLKey && kind == LocalRuntimeKind::automatic) {
    return "It is used once local-runtime is ollama, lm_studio or custom: automatic looks at the "
           "usual places only.\n";
  }
  if (row.key == LocalRuntimeService::kindKey && kind == LocalRuntimeKind::custom && !hasURL) {
    return "It needs an address: vantrell settings local-url http://127.0.0.1:8080/v1\n";
  }
  return "";
}

void store(CommandContext& context, const SettingRow& row, const std::string& value) {
  context.open({}, [&](VantrellApp& app) {
    AppModel& model = app.model();
    // A raise to full access was confirmed before the state was opened.
    const auto changed = model.settingsOperations().change(
        row.name, value, model.selection().key(), SettingsOperations::FullAccess::confirmed);
    if (!changed) return context.finish(context.refused(changed.error()));
    context.console.say(fmt::format("{} is {} now.\n", row.name, onOneLine(value)));
    context.console.say(adviceOnLocalRuntime(row, app.defaults()));
    if (!changed->empty()) context.console.write(*changed + "\n");
    context.finish(exitStatus::completed);
  });
}

void set(CommandContext& context, const SettingRow& row, std::string_view text) {
  if (row.isSecret()) {
    return context.misused(
        fmt::format("{0} is a secret, which a command line would show to other programs and to the "
                    "history of your shell. Type \"vantrell settings set {0}\": it asks for the "
                    "address, or reads it from standard input. Nothing was stored.",
                    row.name));
  }
  const auto value = checkedValue(row, text);
  if (!value) return context.misused(value.error());
  const auto defaults = VantrellApp::defaultsForReading();
  const bool isNewFullAccess = row.name == "mode" &&
                               *value == rawText(GrokPermissionMode::fullAccess) && defaults &&
                               readSetting(row, **defaults).text != *value;
  context.confirmFullAccess(isNewFullAccess,
                            [&context, &row, value = *value] { store(context, row, value); });
}

void storeWebhook(CommandContext& context, const std::string& address, std::string_view done) {
  context.open({}, [&](VantrellApp& app) {
    app.model().settingsOperations().changeSecret(
        "tasklet-webhook", address, [&context, done](const Result<>& saved) {
          if (!saved) return context.finish(context.refused(saved.error()));
          context.console.write(done);
          context.finish(exitStatus::completed);
        });
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
  const auto row = findSetting(context.word(0));
  return row ? set(context, **row, context.word(1)) : context.misused(row.error());
}

void setNamed(CommandContext& context) {
  const auto row = findSetting(context.word(0));
  if (!row) return context.misused(row.error());
  if (context.arguments.words.size() == 2) return set(context, **row, context.word(1));
  if ((*row)->isSecret()) return setWebhook(context);
  context.misused("The value is missing: vantrell settings set NAME VALUE");
}

void reset(CommandContext& context) {
  const auto found = findSetting(context.word(0));
  if (!found) return context.misused(found.error());
  const SettingRow& row = **found;
  if (!row.isSettable()) {
    return context.misused(fmt::format("{} can be seen here, not changed.", row.name));
  }
  if (row.isSecret()) return storeWebhook(context, "", "tasklet-webhook is not set any more.\n");
  context.open({}, [&](VantrellApp& app) {
    auto& operations = app.model().settingsOperations();
    const auto done = operations.reset(row.name, app.model().selection().key());
    if (!done) return context.finish(context.refused(done.error()));
    const auto value = operations.value(row).text;
    context.console.write(
        fmt::format("{} is {} again.\n", row.name, value.empty() ? "not set" : onOneLine(value)));
    context.finish(exitStatus::completed);
  });
}

void unlock(CommandContext& context) {
  const auto problem = std::make_shared<std::string>();
  context.inBackground(
      [problem] {
        const auto unlocked = UserFolders{}.orOwn().secretStore()->unlock();
        if (!unlocked) *problem = unlocked.error().description;
      },
      [&context, problem] {
        if (!problem->empty()) return context.fail(*problem);
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

constexpr CommandOption showOptions[] = {{"--json", "", "for scripts: one JSON object"}};
constexpr CommandOption importOptions[] = {{yesOption.name, "", "import without being asked"}};
constexpr Command settingsSubcommands[] = {
    {"set",
     "NAME [VALUE]",
     "store a value; a secret is asked for, or read from standard input",
     {},
     1,
     2,
     setNamed},
    {"reset", "NAME", "remove the stored value", {}, 1, 1, reset},
    {"unlock", "", "let the desktop ask for the password of a locked keyring", {}, 0, 0, unlock},
    {"export",
     "[FILE]",
     "write all conversations as one JSON document, without FILE to standard output",
     {},
     0,
     1,
     exportAll},
    {"import", "FILE", "replace the conversations by such a document; - reads standard input",
     importOptions, 1, 1, importAll},
};

constexpr Command commands[] = {
    {.name = "settings",
     .parameters = "[NAME [VALUE]]",
     .summary = "show or change what is set, and where it is kept",
     .options = showOptions,
     .maxWords = 2,
     .begin = showOrSet,
     .introduction =
         "Without a name: all settings, the folders and the state of the secrets. With a name: "
         "its\n"
         "value. With a value: stores it. A wrong value is answered with what the setting takes.",
     .closing =
         "Full Access takes a person at the terminal who types the words for it. import keeps the\n"
         "former conversations in a file; at a terminal it asks first, elsewhere it takes --yes.\n"
         "\n"
         "Exit status: 0 done, 1 failed, 2 wrong usage, 130 not confirmed.\n"
         "\n"
         "Examples:\n"
         "  vantrell settings workflow plan\n"
         "  vantrell settings kimi-path ~/bin/kimi\n"
         "  vantrell settings reset kimi-path\n"
         "  vantrell settings local-runtime ollama\n"
         "  vantrell settings set tasklet-webhook < file-with-the-address\n"
         "  vantrell settings --json | jq -r .secrets.state",
     .subcommands = settingsSubcommands},
};

}  // namespace

std::span<const Command> settingsCommands() {
  return commands;
}

}  // namespace vantrell::shell
