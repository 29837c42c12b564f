// `vantrell settings`: shows what is set and where everything is kept; changes what a person may
// change; takes all conversations out of the program and into it.
#include <fmt/format.h>

#include "app/conversation_transfer.h"
#include "engine/core/selection.h"
#include "engine/tasks/settings_operations.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "runtimes/tasklet/tasklet_webhook.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "views/transfer_words.h"

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

// The words of the JSON for SecretStore::Kind and SecretError::Kind.
constexpr std::string_view storeKinds[] = {"keyring", "files"};
constexpr std::string_view problemKinds[] = {"missing", "locked", "timedOut", "denied", "failed"};

/// A setting as it is shown: of a secret only whether it is there.
struct Shown {
  std::string text;
  std::optional<bool> isStored;  // nullopt where the secrets cannot be read
};
Shown shown(const SettingRow& row, const UserDefaults& defaults, SecretStore& secrets) {
  if (!row.isSecret()) {
    const auto value = readSetting(row, defaults);
    return {value.text, value.isStored};
  }
  const auto stored = secrets.read(std::string(TaskletConfiguration::secretService),
                                   std::string(TaskletConfiguration::secretAccount));
  if (!stored) return {stored.error().description, std::nullopt};
  if (!*stored) return {"not set", false};
  const bool isValid =
      text::isValidUtf8(**stored) && TaskletConfiguration::validatedWebhookURL(**stored);
  return {isValid ? "set" : "set, but not to an HTTPS address", true};
}

JsonObject asJson(const SettingRow& row, const Shown& shown) {
  const bool hasValue = !row.isSecret() && !shown.text.empty();
  return {{"name", row.name},
          {"key", row.isSecret() ? Json() : Json(row.key)},
          {"value", hasValue ? Json(shown.text) : Json()},
          {"isStored", orNull(shown.isStored)},
          {"canBeSet", row.isSettable()}};
}

/// All settings and where they are kept, for people or as JSON.
std::string everything(const UserDefaults& defaults, SecretStore& secrets, bool isJson,
                       const TerminalStyle& style) {
  const UserFolders folders = UserFolders{}.orOwn();
  const auto status = secrets.status();
  Json::Array settings;
  std::string text = style.bold("Settings") + "\n";
  for (const SettingRow& row : settingRows()) {
    const auto each = shown(row, defaults, secrets);
    settings.push_back(asJson(row, each));
    text += fmt::format("  {:<15} {:<12} {}\n", row.name,
                        each.text.empty() ? "-" : onOneLine(each.text), style.dim(row.meaning));
  }
  text += fmt::format("\n{}\n  settings  {}\n  data      {}\n  secrets   {}\n{}",
                      style.bold("Kept in"), folders.defaultsPath(), folders.support, status.place,
                      status.problem ? status.problem->description + "\n" : "");
  const auto problem = [&](const SecretError& error) {
    return problemKinds[static_cast<std::size_t>(error.kind)];
  };
  const JsonObject all{
      {"settings", std::move(settings)},
      {"settingsFile", folders.defaultsPath()},
      {"dataFolder", folders.support},
      {"secrets",
       JsonObject{{"kind", storeKinds[static_cast<std::size_t>(status.kind)]},
                  {"place", status.place},
                  {"state", status.problem ? problem(*status.problem) : "ok"},
                  {"problem", status.problem ? Json(status.problem->description) : Json()}}}};
  return isJson ? json::write(all) + "\n" : text;
}

/// Goes on with the secret store's answer, for which the desktop may take its time.
void askSecrets(CommandContext& context, std::function<std::string(SecretStore&)> ask,
                std::function<void(const std::string&)> then) {
  const auto answer = std::make_shared<std::string>();
  context.inBackground(
      [answer, ask = std::move(ask)] { *answer = ask(*UserFolders{}.orOwn().secretStore()); },
      [answer, then = std::move(then)] { then(*answer); });
}

void show(CommandContext& context, const SettingRow* row) {
  auto opened = VantrellApp::defaultsForReading();
  if (!opened) return context.fail(opened.error());
  const std::shared_ptr<UserDefaults> defaults = *std::move(opened);
  const auto describe = [row, defaults, isJson = context.isJson(),
                         style = context.style()](SecretStore& secrets) {
    if (!row) return everything(*defaults, secrets, isJson, style);
    const auto each = shown(*row, *defaults, secrets);
    return (isJson ? json::write(asJson(*row, each)) : each.text) + "\n";
  };
  askSecrets(context, describe, [&context](const std::string& words) {
    context.finish(context.tell(context.console.asTyped(words)));
  });
}

// ---- changing -----------------------------------------------------------------------------------

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
  const bool isFullAccess = row.name == "mode" && *value == rawText(GrokPermissionMode::fullAccess);
  context.confirmFullAccess(isFullAccess, [&context, &row, value = *value] {
    context.change([&](AppModel& model) -> Outcome {
      // A raise to full access was confirmed before the state was opened.
      const auto changed = model.settingsOperations().change(
          row.name, value, model.selection().key(), SettingsOperations::FullAccess::confirmed);
      if (!changed) return context.refused(changed.error());
      return context.tell(fmt::format("{} is {} now.\n{}{}", row.name, onOneLine(value), *changed,
                                      changed->empty() ? "" : "\n"));
    });
  });
}

void storeWebhook(CommandContext& context, const std::string& address, std::string_view done) {
  context.open({}, [&](VantrellApp& app) {
    app.model().settingsOperations().changeSecret(
        "tasklet-webhook", address, context.whileAlive([&context, done](const Result<>& saved) {
          context.finish(context.after(saved, [&] { context.tell(done); }));
        }));
  });
}

/// The address is typed unseen or comes from the input, never from the command line.
void setWebhook(CommandContext& context) {
  context.askHidden("Address of the webhook (it is not shown): ", [&context](const auto& given) {
    const std::string address(text::trimmed(given.value_or("")));
    if (!TaskletConfiguration::validatedWebhookURL(address)) {
      return context.misused(
          "The address must begin with https://. Nothing was changed. To forget the webhook: "
          "vantrell settings reset tasklet-webhook");
    }
    storeWebhook(context, address, "tasklet-webhook is set now.\n");
  });
}

/// `settings [NAME [VALUE]]`.
void showOrSet(CommandContext& context) {
  if (context.arguments.words.empty()) return show(context, nullptr);
  const auto row = namedSetting(context);
  if (!row) return context.misused(row.error());
  if (context.arguments.words.size() == 1) return show(context, *row);
  if (!context.isJson()) return set(context, **row, context.word(1));
  context.misused("--json shows settings. Leave it out to change one.");
}

/// `settings set NAME [VALUE]`.
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
  context.change([&](AppModel& model) {
    auto& operations = model.settingsOperations();
    return context.after(operations.reset(row.name, model.selection().key()), [&] {
      const auto value = operations.value(row).text;
      context.tell(
          fmt::format("{} is {} again.\n", row.name, value.empty() ? "not set" : onOneLine(value)));
    });
  });
}

void unlock(CommandContext& context) {
  const auto ask = [](SecretStore& secrets) {
    const auto unlocked = secrets.unlock();
    return unlocked ? "" : unlocked.error().description;
  };
  askSecrets(context, ask, [&context](const std::string& problem) {
    if (!problem.empty()) return context.fail(problem);
    context.finish(context.tell("The secrets can be read.\n"));
  });
}

// ---- all conversations --------------------------------------------------------------------------

void exportAll(CommandContext& context) {
  const auto exported = exportConversations(UserFolders{}.orOwn());
  if (!exported) return context.fail(fmt::format("{}. Nothing was exported.", exported.error()));
  if (exported->notice) context.complain(*exported->notice);
  if (context.arguments.words.empty() || context.word(0) == "-") {
    return context.finish(context.tell(exported->document + "\n"));
  }
  const auto written = writeExport(context.absolute(context.word(0)), exported->document, true);
  context.finish(context.after(written, [&] {
    context.tell(fmt::format("{} written to \"{}\".\n",
                             views::countsOf(exported->threads, exported->workspaces),
                             onOneLine(context.word(0))));
  }));
}

void replaceAll(CommandContext& context, ConversationImport& import, std::string_view document) {
  const auto imported = import.replace(document, context.main.now());
  if (const auto notice = import.takeNotice()) context.complain(*notice);
  if (!imported) return context.fail(fmt::format("{}. Nothing was imported.", imported.error()));
  const auto warning = views::missingFoldersWarning(imported->withoutFolder);
  if (!warning.empty()) context.complain(warning);
  context.finish(context.tell(fmt::format(
      "{} imported. The conversations of before are in \"{}\".\n",
      views::countsOf(imported->threads, imported->workspaces), imported->quarantined)));
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

constexpr Command settingsSubcommands[] = {
    {"set", "NAME [VALUE]", "store a value; a secret is asked for, or read from standard input",
     noOptions, setNamed},
    {"reset", "NAME", "remove the stored value", noOptions, reset},
    {"unlock", "", "let the desktop ask for the password of a locked keyring", noOptions, unlock},
    {"export", "[FILE]",
     "write all conversations as one JSON document, without FILE to standard output", noOptions,
     exportAll},
    {"import", "FILE", "replace the conversations by such a document; - reads standard input",
     onlyYes, importAll},
};

constexpr Command commands[] = {
    {"settings", "[NAME [VALUE]]", "show or change what is set, and where it is kept", onlyJson,
     showOrSet,
     "Without a name: all settings, the folders and the state of the secrets. With a name: its\n"
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
