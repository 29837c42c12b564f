// `vantrell connect`: pairs with a host, and works with its tasks in the words of the commands for
// this computer's own. They need no lock here, and never go to another process.
#include <fmt/format.h>
#include <set>

#include "platform/crypto/crypto.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "remote/client/remote_records.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/remote_job.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

using Host = std::shared_ptr<PairedHost>;
using Type = RemoteMessageType;

/// For a host to carry out one command.
constexpr std::chrono::seconds confirmLimit{30};
/// Of a picture or film in memory, in bytes.
constexpr std::size_t largestMedia = std::size_t{1} << 30;

void withHost(CommandContext& context, std::function<void(const Host&)> then) {
  PairedHost::connect(context, std::nullopt, std::move(then));
}

/// Goes on once that holds, which is looked at whenever the host tells something.
void once(CommandContext& context, const Host& host, std::function<bool()> holds,
          std::function<void()> then) {
  const auto limit = std::make_shared<Timer>(context.main.after(confirmLimit, [&context, host] {
    context.fail(fmt::format("{} has not confirmed the command. It may have been carried out.",
                             host->name()));
  }));
  host->onChange = [&context, host = host.get(), limit, holds = std::move(holds),
                    then = std::move(then)] {
    if (context.hasFinished() || !limit->isActive() || !holds()) return;
    limit->cancel();
    context.main.post(context.whileAlive([host, then] {
      host->onChange = nullptr;
      then();
    }));
  };
  host->onChange();
}

/// Brings commands to the host, one after the other, and goes on when they have had their effect
/// and its new state is here.
void carryOut(CommandContext& context, const Host& host, std::vector<RemoteEnvelope> commands,
              std::function<void()> then) {
  struct Progress {
    std::size_t open;
    std::size_t seen = 0;  // number of the snapshot after which the effect must show
  };
  const auto progress = std::make_shared<Progress>(commands.size());
  for (auto& command : commands) {
    host->deliver(std::move(command), nullptr, [&context, host, progress](const Result<>& done) {
      if (context.hasFinished()) return;
      if (!done) return context.fail(done.error().sentence);
      if (--progress->open > 0) return;
      progress->seen = host->snapshotNumber();
      host->refresh();
    });
  }
  once(
      context, host,
      [host = host.get(), progress] {
        return progress->open == 0 && host->snapshotNumber() > progress->seen;
      },
      std::move(then));
}

RemoteTask taskOf(const ThreadExecutionKey& key) {
  return {key.workspaceID.text(), key.threadID.text()};
}

std::expected<ThreadExecutionKey, UsageError> findTask(const Host& host, std::string_view word) {
  return shell::findTask(recordsOf(host->snapshot()), word);
}

// ---- connect, forget ----------------------------------------------------------------------------

void tellHost(CommandContext& context, const Host& host, bool isNew) {
  const auto& snapshot = host->snapshot();
  std::size_t tasks = 0, working = 0;
  for (const auto& workspace : snapshot.workspaces) tasks += workspace.threads.size();
  if (snapshot.activities) {
    for (const auto& each : *snapshot.activities) {
      const auto status = fromRawText<RunRecordStatus>(each.status);
      working += status && isActive(*status) ? 1 : 0;
    }
  }
  if (const auto& problem = host->model().state().errorMessage; isNew && problem) {
    context.complain(*problem);
  }
  context.finish(context.report(
      JsonObject{{"host", snapshot.hostName},
                 {"isThroughRelay", host->road() == "through the relay"},
                 {"projects", static_cast<std::int64_t>(snapshot.workspaces.size())},
                 {"tasks", static_cast<std::int64_t>(tasks)},
                 {"working", static_cast<std::int64_t>(working)},
                 {"permissionMode", snapshot.permissionMode},
                 {"providerMode", snapshot.providerMode}},
      fmt::format("{} {}, {}: {} in {}, {} at work.\n", isNew ? "Paired with" : "Connected to",
                  onOneLine(host->name()), host->road(), counted(tasks, "task"),
                  counted(snapshot.workspaces.size(), "project"), working)));
}

void connect(CommandContext& context) {
  if (context.arguments.words.empty()) {
    return withHost(context, [&](const Host& host) { tellHost(context, host, false); });
  }
  const auto pair = [&context](const std::string& given) {
    PairedHost::connect(context, given,
                        [&context](const Host& host) { tellHost(context, host, true); });
  };
  context.word(0) == "-" ? context.readInput(pair) : pair(context.word(0));
}

void forget(CommandContext& context) {
  PairedHost::forget(context, [&context](bool wasPaired) {
    context.finish(context.tell(wasPaired ? "This computer is no longer paired with the host.\n"
                                          : "This computer was not paired with a host.\n"));
  });
}

// ---- as at home ---------------------------------------------------------------------------------

const Command* commandOf(std::span<const Command> group, std::string_view name) {
  const auto found = std::ranges::find(group, name, &Command::name);
  return found == group.end() ? nullptr : &*found;
}

/// Does what the command of that group does, with the host's conversations.
template <std::span<const Command> (*group)(), auto name>
void asAtHome(CommandContext& context) {
  withHost(context, [&context](const Host& host) {
    context.lookAt(recordsOf(host->snapshot()));
    commandOf(group(), name())->begin(context);
  });
}

template <std::span<const Command> (*group)(), auto name>
Command sameAs() {
  const auto* const home = commandOf(group(), name());
  return {.name = home->name,
          .parameters = home->parameters,
          .summary = home->summary,
          .options = home->options,
          .begin = asAtHome<group, name>,
          .staysHere = true};
}

// ---- one change of a task -----------------------------------------------------------------------

/// Makes the commands for the task that the first word names, and tells that it is done.
void changeTask(CommandContext& context,
                std::function<std::vector<RemoteEnvelope>(const RemoteTask&)> make,
                std::string_view done) {
  withHost(context, [&context, make = std::move(make), done](const Host& host) {
    const auto key = findTask(host, context.word(0));
    if (!key) return context.misused(key.error());
    carryOut(context, host, make(taskOf(*key)), [&context, key = *key, done] {
      context.finish(context.tell(fmt::format("{}  {}\n", shortID(key.threadID), done)));
    });
  });
}

void stop(CommandContext& context) {
  // A host stops the task that is selected there.
  changeTask(
      context,
      [](const RemoteTask& task) {
        return std::vector{commandFor(Type::selectThread, task), commandFor(Type::cancel, task)};
      },
      "was told to stop");
}

void rename(CommandContext& context) {
  changeTask(
      context,
      [title = context.word(1)](const RemoteTask& task) {
        auto command = commandFor(Type::renameThread, task);
        command.text = title;
        return std::vector{command};
      },
      "is renamed");
}

void archive(CommandContext& context) {
  const bool isArchived = !context.arguments.has(offOption.name);
  changeTask(
      context,
      [isArchived](const RemoteTask& task) {
        auto command = commandFor(Type::setThreadArchived, task);
        command.isArchived = isArchived;
        return std::vector{command};
      },
      isArchived ? "is archived" : "is no longer archived");
}

// ---- queue --------------------------------------------------------------------------------------

void clearQueue(CommandContext& context) {
  changeTask(
      context,
      [](const RemoteTask& task) {
        return std::vector{commandFor(Type::selectThread, task),
                           commandFor(Type::queueClear, task)};
      },
      "has an empty queue now");
}

void removePrompts(CommandContext& context) {
  withHost(context, [&context](const Host& host) {
    const auto workspaces = recordsOf(host->snapshot());
    const auto key = shell::findTask(workspaces, context.word(0));
    if (!key) return context.misused(key.error());
    const auto& thread = threadOf(workspaces, *key);
    const auto task = taskOf(*key);
    std::vector commands{commandFor(Type::selectThread, task)};
    for (const auto& word : std::span(context.arguments.words).subspan(1)) {
      const auto found = findByID(thread.queuedPrompts, word, "prompt in the queue",
                                  "connect queue " + shortID(thread.id));
      if (!found) return context.misused(found.error());
      auto command = commandFor(Type::queueRemove, task);
      command.queuePromptID = (*found)->id.text();
      commands.push_back(std::move(command));
    }
    carryOut(context, host, std::move(commands), [&context, id = thread.id] {
      context.finish(
          context.tell(fmt::format("{}  has fewer prompts in the queue\n", shortID(id))));
    });
  });
}

// ---- work ---------------------------------------------------------------------------------------

/// Follows it to its end, as a run at home.
void follow(CommandContext& context, const Host& host, RemoteJob::What what) {
  const std::shared_ptr<RunObserver> printer = makePrinter(
      context, "", [&context](std::string_view bytes) { context.console.write(bytes); });
  context.keep(printer);
  const auto& snapshot = host->snapshot();
  const auto workspace =
      std::ranges::find(snapshot.workspaces, what.task.workspaceID, &RemoteWorkspace::id);
  const std::string runtime = fmt::format("{} on {}", snapshot.activeProviderLabel, host->name());
  printer->introduced({.conversation = {Uuid::parse(what.task.workspaceID).value_or(Uuid()),
                                        Uuid::parse(what.task.threadID).value_or(Uuid())},
                       .runtime = runtime,
                       .folder = workspace == snapshot.workspaces.end() ? "" : workspace->path,
                       .earlierEntries = what.shownEntries,
                       .permissionNotice = {},
                       .resumeCommand = context.console.asTyped("vantrell connect run --task")});
  std::vector<std::unique_ptr<Job>> jobs;
  jobs.push_back(std::make_unique<RemoteJob>(context, host, std::move(what), *printer));
  const auto session = Session::begin(context, std::move(jobs),
                                      {.answerKind = context.arguments.value(answerOption.name),
                                       .hearsPrompts = context.canAsk() && !context.isJson(),
                                       .isElsewhere = true},
                                      [&context](int status) { context.finish(status); });
  host->onChange = [session] {
    if (const auto alive = session.lock()) alive->changed({});
  };
}

/// Sends the files, again where the connection was lost meanwhile, and goes on with their paths on
/// the host.
void upload(CommandContext& context, const Host& host, const RemoteTask& task,
            const std::vector<ChatAttachment>& files,
            std::function<void(std::vector<ChatAttachment>)> then) {
  using Status = MacRemoteDraftAttachment::Status;
  if (files.empty()) return then({});
  auto& model = host->model();
  const auto begin = [&model, files] {
    std::vector<std::string> paths;
    for (const auto& file : files) paths.push_back(file.path);
    model.uploadAttachments(paths);
  };
  model.selectThread(task.threadID, task.workspaceID);
  host->onReconnected = [&model, task, begin] {
    const auto drafts = model.state().draftAttachments;  // what came whole stays
    for (const auto& each : drafts) {
      if (each.status == Status::uploading) model.removeAttachment(each.id);
    }
    begin();
  };
  host->onChange = [&context, host = host.get(), &model, then = std::move(then)] {
    const auto& drafts = model.state().draftAttachments;
    if (context.hasFinished() || !host->onReconnected) return;
    if (host->isGivenUp()) return context.fail("The files could not be sent.");
    std::vector<ChatAttachment> sent;
    for (const auto& each : drafts) {
      if (each.status == Status::failed) {
        return context.fail(fmt::format("\"{}\" could not be sent. {}", each.url, each.text));
      }
      if (each.status == Status::ready) sent.push_back({.path = each.text});
    }
    if (sent.empty() || sent.size() != drafts.size()) return;
    host->onReconnected = nullptr;
    context.console.status("");
    context.main.post(context.whileAlive([then, sent] { then(sent); }));
  };
  context.console.status(fmt::format("Sending {} ...", counted(files.size(), "file")));
  begin();
}

/// Goes on with a new task in the project that is named, else in the one selected on the host.
void makeTask(CommandContext& context, const Host& host, std::function<void(RemoteTask)> then) {
  auto command = RemoteEnvelope::make(Type::newThread);
  command.workspaceID = host->snapshot().selectedWorkspaceID;
  if (const auto named = context.arguments.value(ofProjectOption.name)) {
    const auto found = findProject(recordsOf(host->snapshot()), *named, context.caller.folder);
    if (!found) return context.misused(found.error());
    command.workspaceID = found->text();
  }
  carryOut(context, host, {command}, [&context, host, then = std::move(then)] {
    const auto& snapshot = host->snapshot();
    const RemoteTask made{snapshot.selectedWorkspaceID.value_or(""),
                          snapshot.selectedThreadID.value_or("")};
    const auto* thread = threadIn(snapshot, made);
    if (!thread || !thread->entries.empty()) {
      return context.fail("The host has not made the task. Try again.");
    }
    then(made);
  });
}

void run(CommandContext& context) {
  const auto files = attachmentsOf(context);
  if (!files) return context.misused(files.error());
  for (const auto& file : *files) {
    if (file.kind == ChatAttachmentKind::directory) {
      return context.misused(
          fmt::format("\"{}\" is a folder; only files can be sent to a host.", file.path));
    }
  }
  const auto begin = [&context, files = *files](const Host& host, const std::string& prompt) {
    const auto goOn = [&context, host, files, prompt](const RemoteTask& task) {
      upload(context, host, task, files,
             [&context, host, task, prompt](const std::vector<ChatAttachment>& sent) {
               follow(context, host, promptFor(host->snapshot(), task, prompt, sent));
             });
    };
    const auto named = context.arguments.value(taskOption.name);
    if (!named) return makeTask(context, host, goOn);
    const auto key = findTask(host, *named);
    key ? goOn(taskOf(*key)) : context.misused(key.error());
  };
  withPrompt(context, context.word(0), [&context, begin](const std::string& prompt) {
    withHost(context, [begin, prompt](const Host& host) { begin(host, prompt); });
  });
}

void branch(CommandContext& context) {
  const auto begin = [&context](const Host& host, const std::string& given) {
    const std::string prompt(text::trimmed(given));
    const auto workspaces = recordsOf(host->snapshot());
    const auto key = shell::findTask(workspaces, context.word(0));
    if (!key) return context.misused(key.error());
    const auto& thread = threadOf(workspaces, *key);
    const auto from = context.arguments.value("--from");
    const auto place = from ? findEntry(thread, *from) : latestPrompt(thread);
    if (!place) return context.misused(place.error());
    auto command = commandFor(Type::branchAndSend, taskOf(*key));
    command.entryID = thread.entries[*place].id;
    command.text = prompt;
    command.providerID = context.arguments.value(providerOption.name);
    std::set<std::string> known;
    for (const auto& workspace : host->snapshot().workspaces) {
      for (const auto& each : workspace.threads) known.insert(each.id);
    }
    /// The branch and how much of it was said before its prompt.
    const auto made = [known, prompt](const RemoteSnapshot& now) -> std::optional<RemoteJob::What> {
      for (const auto& workspace : now.workspaces) {
        for (const auto& each : workspace.threads) {
          if (known.contains(each.id)) continue;
          const auto isIt = [&](const auto& one) { return text::trimmed(one.text) == prompt; };
          const auto entry = std::ranges::find_if(each.entries, isIt);
          if (entry == each.entries.end() && std::ranges::none_of(each.queuedPrompts, isIt))
            continue;
          RemoteJob::What what{.task = {workspace.id, each.id},
                               .command = std::nullopt,
                               .hasHappened = nullptr,
                               .earlierRun = std::nullopt};
          what.shownEntries = static_cast<std::size_t>(entry - each.entries.begin());
          return what;
        }
      }
      return std::nullopt;
    };
    host->deliver(
        std::move(command), [made](const RemoteSnapshot& now) { return made(now).has_value(); },
        [&context, host](const Result<>& done) {
          if (context.hasFinished()) return;
          done ? host->refresh() : context.fail(done.error().sentence);
        });
    once(
        context, host, [host = host.get(), made] { return made(host->snapshot()).has_value(); },
        [&context, host, made] { follow(context, host, *made(host->snapshot())); });
  };
  withPrompt(context, context.word(1), [&context, begin](const std::string& prompt) {
    withHost(context, [begin, prompt](const Host& host) { begin(host, prompt); });
  });
}

void runQueue(CommandContext& context) {
  withHost(context, [&context](const Host& host) {
    const auto key = findTask(host, context.word(0));
    if (!key) return context.misused(key.error());
    const auto task = taskOf(*key);
    const auto& snapshot = host->snapshot();
    const auto* thread = threadIn(snapshot, task);
    if (!thread || thread->queuedPrompts.empty()) {
      return context.misused("The queue of this task is empty.");
    }
    RemoteJob::What what{
        .task = task,
        .command = commandFor(Type::queueRunNext, task),
        .hasHappened =
            [task, first = thread->queuedPrompts.front().id](const RemoteSnapshot& now) {
              const auto* its = threadIn(now, task);
              return !its || its->queuedPrompts.empty() || its->queuedPrompts.front().id != first;
            },
        .shownEntries = thread->entries.size(),
        .earlierRun = std::nullopt};
    if (const auto* activity = activityIn(snapshot, task)) what.earlierRun = activity->id;
    host->deliver(commandFor(Type::selectThread, task), nullptr, nullptr);
    follow(context, host, std::move(what));
  });
}

// ---- media --------------------------------------------------------------------------------------

Outcome listMedia(CommandContext& context, const Host& host) {
  const auto asJson = [](const RemoteImagineItem& item) {
    return JsonObject{{"id", item.id},
                      {"kind", item.kind},
                      {"prompt", item.prompt},
                      {"fileName", item.fileName},
                      {"createdAt", item.createdAt}};
  };
  const auto asCells = [&](const RemoteImagineItem& item) -> std::vector<TableCell> {
    return {{std::string(text::firstCharacters(item.id, 8)), look::cyan},
            {item.kind},
            {item.prompt},
            {item.fileName, look::dim},
            {ago(Date::sinceUnixEpoch(item.createdAt), context.main.now()), look::dim}};
  };
  return context.showList(host->snapshot().imagineItems,
                          TextTable({{"ITEM"}, {"KIND"}, {"PROMPT", 16}, {"FILE", 12}, {"MADE"}}),
                          asJson, asCells, "The host has no pictures or films.\n");
}

/// The bytes of one item, as they come.
struct Fetched {
  std::string bytes;
  std::int64_t pieces = 0;  // in a row, from the first
};

void fetchMedia(CommandContext& context, const Host& host, const RemoteImagineItem& item) {
  const auto lastName = files::lastComponent(item.fileName);
  const std::string name =
      lastName.empty() || lastName == "." || lastName == ".." ? "media" : std::string(lastName);
  const std::string path =
      context.absolute(context.arguments.words.size() > 1 ? context.word(1) : name);
  if (!context.arguments.has("--replace") && files::exists(path)) {
    return context.misused(
        fmt::format("\"{}\" exists already. --replace writes over it.", onOneLine(path)));
  }
  const auto fetched = std::make_shared<Fetched>();
  const auto ask = [&context, host = host.get(), id = item.id, fetched] {
    *fetched = {};
    auto command = RemoteEnvelope::make(Type::mediaRequest);
    command.mediaID = id;
    host->deliver(std::move(command), nullptr, [&context](const Result<>& done) {
      if (!context.hasFinished() && !done) context.fail(done.error().sentence);
    });
  };
  const auto limit = std::make_shared<Timer>();
  const auto beginAfresh = [&context, limit, host = host.get()] {
    *limit = context.main.after(confirmLimit, [&context, host] {
      context.fail(fmt::format("{} has not sent the file.", host->name()));
    });
  };
  host->onReconnected = ask;
  host->onMedia = [&context, host = host.get(), id = item.id, path, fetched, limit,
                   beginAfresh](const RemoteEnvelope& piece) {
    if (piece.mediaID != id || piece.chunkIndex != fetched->pieces) return;
    const auto bytes = crypto::fromBase64(piece.data.value_or(""));
    const bool isTooLarge = bytes && fetched->bytes.size() + bytes->size() > largestMedia;
    if (!bytes || isTooLarge) {
      return context.fail(isTooLarge ? "The file is too large." : "The file came damaged.");
    }
    beginAfresh();
    fetched->bytes += *bytes;
    if (++fetched->pieces < piece.chunkCount.value_or(0)) return;
    limit->cancel();
    host->onMedia = nullptr;
    host->onReconnected = nullptr;
    const auto written = std::make_shared<files::Result<>>();
    context.inBackground(
        [path, fetched, written] { *written = files::writeAtomically(path, fetched->bytes); },
        [&context, path, fetched, written] {
          if (!*written) return context.fail(written->error().description);
          context.finish(context.report(
              JsonObject{{"path", path},
                         {"bytes", static_cast<std::int64_t>(fetched->bytes.size())}},
              path + "\n"));
        });
  };
  beginAfresh();
  ask();
}

void media(CommandContext& context) {
  withHost(context, [&context](const Host& host) {
    if (context.arguments.words.empty()) return context.finish(listMedia(context, host));
    std::vector<const RemoteImagineItem*> found;
    for (const auto& item : host->snapshot().imagineItems) {
      if (text::lowercased(item.id).starts_with(text::lowercased(context.word(0)))) {
        found.push_back(&item);
      }
    }
    if (found.size() != 1) {
      return context.misused(
          notExactlyOne(found.size(), "picture or film", context.word(0), "connect media"));
    }
    fetchMedia(context, host, *found.front());
  });
}

// ---- their help ---------------------------------------------------------------------------------

constexpr CommandOption hostProjectOption{
    ofProjectOption.name, "PROJECT",
    "in this project of the host, by its name or ID (default: the one selected there)"};
constexpr CommandOption runOptions[] = {hostProjectOption, taskOption, attachOption, answerOption,
                                        jsonOption};
constexpr CommandOption branchOptions[] = {
    {"--from", "ENTRY", "the prompt to replace, or an entry after it (default: the latest prompt)"},
    providerOption,
    answerOption,
    jsonOption};
constexpr CommandOption queueRunOptions[] = {answerOption, jsonOption};
constexpr CommandOption mediaOptions[] = {{"--replace", "", "write over a file that exists"},
                                          jsonOption};
constexpr CommandOption onlyOff[] = {offOption};

constexpr Command queueChanges[] = {
    {.name = "remove",
     .parameters = "ID PROMPT...",
     .summary = "remove prompts without sending them",
     .begin = removePrompts,
     .staysHere = true},
    {.name = "clear",
     .parameters = "ID",
     .summary = "remove all of them",
     .begin = clearQueue,
     .staysHere = true},
    {.name = "run",
     .parameters = "ID",
     .summary = "send the first, and go on to the end of the queue",
     .options = queueRunOptions,
     .begin = runQueue,
     .staysHere = true},
};

const std::vector<Command>& verbs() {
  static const std::vector<Command> all = [] {
    constexpr auto tasks = [] { return std::string_view("tasks"); };
    constexpr auto activity = [] { return std::string_view("activity"); };
    constexpr auto status = [] { return std::string_view("status"); };
    constexpr auto search = [] { return std::string_view("search"); };
    constexpr auto show = [] { return std::string_view("show"); };
    constexpr auto exportName = [] { return std::string_view("export"); };
    constexpr auto say = [] { return std::string_view("say"); };
    constexpr auto queue = [] { return std::string_view("queue"); };
    auto queueOfHost = sameAs<runCommands, queue>();
    queueOfHost.summary = "the prompts that wait in a task: remove, send";
    queueOfHost.subcommands = queueChanges;
    return std::vector<Command>{
        sameAs<taskListCommands, tasks>(),
        sameAs<taskListCommands, activity>(),
        sameAs<taskListCommands, status>(),
        sameAs<taskListCommands, search>(),
        sameAs<taskCommands, show>(),
        sameAs<taskCommands, exportName>(),
        sameAs<taskCommands, say>(),
        {.name = "run",
         .parameters = "\"prompt\"",
         .summary = "do one task there, and follow it here",
         .options = runOptions,
         .begin = run,
         .closing = "A prompt for a task that is at work joins its queue. Files are sent to the\n"
                    "host, each of at most 20 MB. Ctrl-C stops the task there, a second one\n"
                    "leaves it to itself.",
         .staysHere = true},
        {.name = "branch",
         .parameters = "ID \"prompt\"",
         .summary = "say an earlier prompt in other words, in a worktree of its own",
         .options = branchOptions,
         .begin = branch,
         .staysHere = true},
        queueOfHost,
        {.name = "stop",
         .parameters = "ID",
         .summary = "stop what a task does",
         .begin = stop,
         .staysHere = true},
        {.name = "rename",
         .parameters = "ID TITLE",
         .summary = "give a task another title",
         .begin = rename,
         .staysHere = true},
        {.name = "archive",
         .parameters = "ID",
         .summary = "take a task off the list",
         .options = onlyOff,
         .begin = archive,
         .staysHere = true},
        {.name = "media",
         .parameters = "[ITEM] [FILE]",
         .summary = "the host's pictures and films; with ITEM fetch one into a file",
         .options = mediaOptions,
         .begin = media,
         .staysHere = true},
        {.name = "forget",
         .summary = "end the pairing on this computer",
         .begin = forget,
         .staysHere = true},
    };
  }();
  return all;
}

}  // namespace

std::span<const Command> connectCommands() {
  static const Command command{
      .name = "connect",
      .parameters = "[LINK|CODE]",
      .summary = "work with the tasks of another computer",
      .options = onlyJson,
      .begin = connect,
      .introduction =
          "Pairs this computer with a host, which has shown a pairing link or a code of eight\n"
          "characters, and then works with the tasks there. A link holds the host's access key:\n"
          "a LINK of - is read from standard input, so that it stays out of the list of\n"
          "processes. Without a word: says whether the host answers.",
      .closing =
          "docs/remote.md tells how to set a host up, and what is protected against whom.\n"
          "\n"
          "Examples:\n"
          "  vantrell connect 7K4M-92QX\n"
          "  vantrell connect tasks\n"
          "  vantrell connect run --project website \"find out why the build fails\"",
      .subcommands = verbs(),
      .staysHere = true};
  return {&command, 1};
}

}  // namespace vantrell::shell
