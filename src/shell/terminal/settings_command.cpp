// `vantrell settings`: shows what is set and where everything is kept; changes what a person may
// change. Showing takes no lock, so that it also answers while the program runs.
#include <fmt/format.h>
#include <unistd.h>

#include "app/user_state.h"
#include "platform/values/json.h"
#include "runtimes/local/local_runtime_service.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/full_access_confirmation.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/setting_table.h"
#include "shell/terminal/settings_transfer.h"
#include "shell/terminal/task_change.h"
#include "shell/terminal/terminal_style.h"
#include "shell/terminal/webhook_setting.h"

namespace vantrell::shell {

namespace {

std::string_view nameOf(SecretStore::Kind kind) {
  switch (kind) {
    case SecretStore::Kind::secretService: return "keyring";
    case SecretStore::Kind::files: return "files";
    case SecretStore::Kind::memory: break;
  }
  return "memory";
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

int failed(std::string_view sentence) {
  complain(sentence);
  return exitStatus::failed;
}

/// What is stored, for reading. Nothing is made where nothing is.
std::expected<std::unique_ptr<UserDefaults>, std::string> storedDefaults(
    const UserFolders& folders) {
  if (!files::exists(folders.defaultsPath())) return UserDefaults::inMemory();
  return UserDefaults::open(folders.defaultsPath());
}

// ---- showing ------------------------------------------------------------------------------------

Json asJson(const SettingRow& row, const SettingValue& value) {
  JsonObject object;
  object.set("name", std::string(row.name));
  object.set("key", std::string(row.key));
  object.set("value", value.text.empty() ? Json(nullptr) : Json(value.text));
  object.set("isStored", value.isStored);
  object.set("canBeSet", row.isSettable());
  return object;
}

/// Its value is nobody's to see.
Json secretAsJson(const SettingRow& row, const UserFolders& folders) {
  const auto state = webhookState(folders);
  JsonObject object;
  object.set("name", std::string(row.name));
  object.set("key", nullptr);
  object.set("value", nullptr);
  object.set("isStored", state ? Json(*state != "not set") : Json(nullptr));
  object.set("canBeSet", true);
  return object;
}

int showAllAsJson(const UserFolders& folders, const UserDefaults& defaults) {
  Json::Array settings;
  for (const SettingRow& row : settingRows()) {
    settings.push_back(row.isSecret() ? secretAsJson(row, folders)
                                      : asJson(row, readSetting(row, defaults)));
  }
  const auto status = folders.secretStore()->status();
  JsonObject secrets;
  secrets.set("kind", std::string(nameOf(status.kind)));
  secrets.set("place", status.place);
  secrets.set("state", std::string(stateOf(status)));
  secrets.set("problem", status.problem ? Json(status.problem->description) : Json(nullptr));
  JsonObject all;
  all.set("settings", std::move(settings));
  all.set("settingsFile", folders.defaultsPath());
  all.set("dataFolder", folders.support);
  all.set("secrets", std::move(secrets));
  tell(json::write(all) + "\n");
  return exitStatus::completed;
}

int showAll(const UserFolders& folders, const UserDefaults& defaults,
            const Environment& environment) {
  const auto style = TerminalStyle::of(STDOUT_FILENO, environment);
  std::string text = style.bold("Settings") + "\n";
  for (const SettingRow& row : settingRows()) {
    if (row.isSecret()) continue;  // below: its store may take its time
    const auto [value, isStored] = readSetting(row, defaults);
    text += fmt::format("  {:<15} {} {}\n", row.name,
                        isStored ? fmt::format("{:<12}", value)
                                 : style.dim(fmt::format("{:<12}", value.empty() ? "-" : value)),
                        style.dim(row.meaning));
  }
  text += fmt::format("\n{}\n  {:<15} {}\n  {:<15} {}\n", style.bold("Kept in"), "settings",
                      folders.defaultsPath(), "data", folders.support);
  tell(text);
  // The keyring may take its time: what is known already is on the screen.
  const auto status = folders.secretStore()->status();
  tell(fmt::format("  {:<15} {}\n", "secrets",
                   status.kind == SecretStore::Kind::files
                       ? fmt::format("{} (owner-only files)", status.place)
                       : status.place));
  if (status.problem) {
    tell(fmt::format("  {:<15} {}\n", "", status.problem->description));
    return exitStatus::completed;
  }
  tell(fmt::format("\n{}\n", style.bold("Secrets")));
  for (const SettingRow& row : settingRows()) {
    if (!row.isSecret()) continue;
    const auto state = webhookState(folders);
    tell(fmt::format("  {:<15} {:<12} {}\n", row.name, state ? *state : state.error(),
                     style.dim(row.meaning)));
  }
  return exitStatus::completed;
}

int show(const std::vector<std::string>& words, bool asksForJson, const Environment& environment) {
  const UserFolders folders = UserFolders{}.orOwn();
  const auto defaults = storedDefaults(folders);
  if (!defaults) return failed(defaults.error());
  if (words.empty()) {
    return asksForJson ? showAllAsJson(folders, **defaults)
                       : showAll(folders, **defaults, environment);
  }
  const auto row = findSetting(words.front());
  if (!row) return refuse(row.error());
  if ((*row)->isSecret()) {
    const auto state = webhookState(folders);
    if (!state) return failed(state.error());
    tell((asksForJson ? json::write(secretAsJson(**row, folders)) : *state) + "\n");
    return exitStatus::completed;
  }
  const auto value = readSetting(**row, **defaults);
  tell((asksForJson ? json::write(asJson(**row, value)) : value.text) + "\n");
  return exitStatus::completed;
}

// ---- changing -----------------------------------------------------------------------------------

int withState(const std::function<int(UserState&)>& work) {
  auto state = UserState::open({}, Date::current());
  if (!state) return failed(state.error());
  if (state->notice) complain(*state->notice);
  return work(*state);
}

/// The two settings of the local server count together.
void tellOfLocalRuntime(const SettingRow& row, const UserDefaults& defaults) {
  const auto kind = LocalRuntimeService::configuredKind(defaults);
  const bool hasURL = !LocalRuntimeService::configuredURL(defaults).empty();
  if (row.key == LocalRuntimeService::baseURLKey && kind == LocalRuntimeKind::automatic) {
    tell(
        "It counts once local-runtime is ollama, lm_studio or custom: automatic looks at the "
        "usual places only.\n");
  } else if (row.key == LocalRuntimeService::kindKey && kind == LocalRuntimeKind::custom &&
             !hasURL) {
    tell(fmt::format("It needs an address: vantrell settings local-url {}\n",
                     LocalRuntimeService::baseURLPlaceholder));
  }
}

/// Of what is asked for, since a command line is no place for it.
int setSecret(std::string_view name) {
  const auto row = findSetting(name);
  if (!row) return refuse(row.error());
  if ((*row)->isSecret()) return setWebhook();
  return refuse({"Type: vantrell settings set NAME VALUE"});
}

int set(std::string_view name, std::string_view text) {
  const auto row = findSetting(name);
  if (!row) return refuse(row.error());
  if ((*row)->isSecret()) {
    return refuse(
        {fmt::format("{0} is a secret, which a command line would tell to other programs "
                     "and to the history of your shell. Type \"vantrell settings set "
                     "{0}\": it asks for the address, or reads it from standard input. "
                     "Nothing was stored.",
                     (*row)->name)});
  }
  const auto value = checkedValue(**row, text);
  if (!value) return refuse(value.error());
  const auto isSetAlready = [&] {
    const auto defaults = storedDefaults(UserFolders{}.orOwn());
    return defaults && readSetting(**row, **defaults).text == *value;
  };
  if ((*row)->name == "mode" && *value == rawText(GrokPermissionMode::fullAccess) &&
      !isSetAlready()) {
    if (const auto confirmed = confirmFullAccess(Person::atTheTerminal()); !confirmed) {
      return refuse(confirmed.error());
    }
  }
  return withState([&](UserState& state) {
    const bool lowersFullAccess =
        *value == rawText(TaskWorkflowMode::plan) &&
        state.defaults->text("grokPermissionMode.v1") == rawText(GrokPermissionMode::fullAccess);
    if (!storeSetting(**row, *value, *state.defaults)) return failed(state.defaults->lastError());
    tell(fmt::format("{} is {} now.\n", (*row)->name, *value));
    tellOfLocalRuntime(**row, *state.defaults);
    if ((*row)->name == "workflow" && lowersFullAccess) {
      tell("A plan never begins with full access: mode is ask now.\n");
    }
    return exitStatus::completed;
  });
}

int reset(std::string_view name) {
  const auto row = findSetting(name);
  if (!row) return refuse(row.error());
  if (!(*row)->isSettable()) {
    return refuse({fmt::format("{} can be seen here, not changed.", (*row)->name)});
  }
  if ((*row)->isSecret()) return forgetWebhook();
  return withState([&](UserState& state) {
    if (!state.defaults->remove((*row)->key)) return failed(state.defaults->lastError());
    const auto value = readSetting(**row, *state.defaults).text;
    tell(fmt::format("{} is {} again.\n", (*row)->name, value.empty() ? "not set" : value));
    return exitStatus::completed;
  });
}

int unlock() {
  const auto unlocked = UserFolders{}.orOwn().secretStore()->unlock();
  if (!unlocked) return failed(unlocked.error().description);
  tell("The secrets can be read.\n");
  return exitStatus::completed;
}

/// Words whose first is no setting but something to do, and how many they may be.
struct Action {
  std::string_view name;
  std::size_t fewestWords;
  std::size_t mostWords;
  std::string_view usage;
  int (*perform)(const CommandArguments& arguments);
};
constexpr Action actions[] = {
    {"set", 2, 3, "vantrell settings set NAME VALUE",
     [](const CommandArguments& given) {
       const auto& words = given.words;
       return words.size() == 2 ? setSecret(words[1]) : set(words[1], words[2]);
     }},
    {"reset", 2, 2, "vantrell settings reset NAME",
     [](const CommandArguments& given) { return reset(given.words[1]); }},
    {"unlock", 1, 1, "vantrell settings unlock", [](const CommandArguments&) { return unlock(); }},
    {"export", 1, 2, "vantrell settings export [FILE]",
     [](const CommandArguments& given) {
       const auto& words = given.words;
       return exportConversations({}, words.size() > 1 ? std::optional(words[1]) : std::nullopt);
     }},
    {"import", 2, 2, "vantrell settings import FILE",
     [](const CommandArguments& given) { return importConversations({}, given.words[1], given); }},
};

int run(const CommandArguments& arguments, const Environment& environment) {
  const auto& words = arguments.words;
  const bool asksForJson = arguments.has("--json");
  const auto action = std::ranges::find(
      actions, words.empty() ? std::string_view() : std::string_view(words[0]), &Action::name);
  const bool isAction = action != std::end(actions);
  if (asksForJson && (isAction || words.size() > 1)) {
    return refuse({"--json shows settings. Leave it out to change one."});
  }
  if (arguments.has(yesOption.name) && (!isAction || action->name != "import")) {
    return refuse({"--yes is for import."});
  }
  if (!isAction && words.size() < 2) return show(words, asksForJson, environment);
  if (!isAction && words.size() == 2) return set(words[0], words[1]);
  if (!isAction) {
    return refuse({fmt::format(
        "A value is one word; put it in quotes: vantrell settings {} \"...\"", words[0])});
  }
  if (words.size() < action->fewestWords || words.size() > action->mostWords) {
    return refuse({fmt::format("Type: {}", action->usage)});
  }
  return action->perform(arguments);
}

constexpr CommandOption options[] = {jsonOption,
                                     {yesOption.name, "", "import without being asked"}};

}  // namespace

const Command settingsCommand{
    .name = "settings",
    .parameters = "[NAME [VALUE] | set SECRET | reset NAME | unlock | export [FILE] | import FILE]",
    .summary = "show or change what is set, and where it is kept",
    .options = options,
    .mostWords = 3,
    .introduction =
        "Without a name: all settings, the folders and the state of the secrets. With a name: its\n"
        "value. With a value: stores it. What a setting takes is told when it is given another.",
    .closing =
        "A secret is asked for, or read from standard input: set tasklet-webhook. reset NAME\n"
        "takes the stored value away. unlock lets the desktop ask for the password of a locked\n"
        "keyring. Full Access takes a person at the terminal who types the words for it. export\n"
        "writes all conversations as one JSON document, to standard output without a FILE;\n"
        "import replaces them by such a document (- is standard input) and keeps the former\n"
        "ones aside. At a terminal it asks first; elsewhere it takes --yes.\n"
        "\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage, 130 not wanted after all.\n"
        "\n"
        "Examples:\n"
        "  vantrell settings workflow plan\n"
        "  vantrell settings kimi-path ~/bin/kimi\n"
        "  vantrell settings reset kimi-path\n"
        "  vantrell settings local-runtime ollama\n"
        "  vantrell settings set tasklet-webhook < file-with-the-address\n"
        "  vantrell settings --json | jq -r .secrets.state",
    .run = run,
};

}  // namespace vantrell::shell
