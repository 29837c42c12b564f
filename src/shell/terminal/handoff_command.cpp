// `vantrell handoff`: gives a task to another provider, for one turn or for good.
#include <fmt/format.h>

#include "platform/values/json.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/awaiting.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/task_choice.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/user_path.h"
#include "shell/terminal/with_app.h"

namespace vantrell::shell {

namespace {

constexpr std::string_view nextOption = "--next";
constexpr CommandOption options[] = {
    {nextOption, "", "for the next turn only (default: for the task, until you choose another)"},
    {"--json", "", "for scripts: what was chosen, one JSON object"},
};

bool isAvailable(RunLoop& loop, VantrellApp& app, AgentProvider provider,
                 const ThreadExecutionKey& task) {
  await(loop,
        [&](std::function<void()> done) { app.services().prepare(provider, std::move(done)); });
  return findWithUserPath(loop, *app.model().runtimes,
                          [&] { return app.model().router->providerAvailable(provider, task); });
}

int run(const CommandArguments& arguments, const Environment&) {
  const auto provider = fromRawText<AgentProvider>(arguments.words[1]);
  if (!provider) {
    constexpr auto known = rawTexts(AgentProvider{});
    return refuse({fmt::format("There is no provider \"{}\".{} \"vantrell providers\" lists them.",
                               arguments.words[1], suggestion(arguments.words[1], known))});
  }
  const auto scope = arguments.has(nextOption) ? ProviderHandoffScope::nextMessage
                                               : ProviderHandoffScope::continueTask;
  return withApp({}, [&](RunLoop& loop, VantrellApp& app) {
    AppModel& model = app.model();
    const auto task = findTask(model.tree.workspaces(), arguments.words[0]);
    if (!task) return refuse(task.error());
    if (!isAvailable(loop, app, *provider, *task)) {
      complain(whatToDoFor(app, *provider) + " Nothing was changed.");
      return exitStatus::failed;
    }
    model.router->handoff(*provider, scope, *task);
    StandardOutput out;
    const ChatThread& thread = threadOf(model.tree.workspaces(), *task);
    if (arguments.has("--json")) {
      out.write(json::write(JsonObject{{"workspaceID", task->workspaceID.text()},
                                       {"threadID", task->threadID.text()},
                                       {"provider", rawText(*provider)},
                                       {"scope", rawText(scope)}}) +
                "\n");
    } else {
      out.write(fmt::format("{}  {}\n{}\n", shortID(task->threadID), titleOf(thread),
                            thread.entries.back().text));
    }
    return out.finish(exitStatus::completed);
  });
}

}  // namespace

const Command handoffCommand{
    .name = "handoff",
    .parameters = "ID PROVIDER",
    .summary = "let another provider go on with a task",
    .options = options,
    .fewestWords = 2,
    .mostWords = 2,
    .introduction =
        "Chooses who takes the task's next turn. Whoever comes new is told the request, the plan,\n"
        "what was said so far and the state of the repository; a session that it has of the task\n"
        "goes on.",
    .closing =
        "ID is any beginning of a task's ID that no other task has. PROVIDER is an ID as\n"
        "\"vantrell providers\" lists them. The choice comes before the route, also a fixed\n"
        "one.\n"
        "\n"
        "Exit status: 0 done, 1 failed or the provider cannot be used now, 2 wrong usage.",
    .run = run,
};

}  // namespace vantrell::shell
