#include "shell/terminal/safety_work.h"

#include "shell/terminal/plain_words.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/with_app.h"

namespace vantrell::shell {

int withSafetyWork(
    const std::string& task,
    const std::function<std::expected<bool, UsageError>(ChangeContext&, const ChatThread&)>& begin,
    const std::function<void(ChangeContext&, const ThreadExecutionKey&)>& report) {
  return withApp({}, [&](RunLoop& loop, VantrellApp& app) {
    StandardOutput out;
    ChangeContext context{app.model(), out};
    const auto key = findTask(context.workspaces(), task);
    if (!key) return refuse(key.error());
    context.model.operations.selectThread(key->threadID, key->workspaceID);
    const auto begun = begin(context, threadOf(context.workspaces(), *key));
    if (!begun) return refuse(begun.error());
    if (!*begun) return exitStatus::stopped;
    const auto observation = context.model.changes.observe([&](const Change& change) {
      const bool mayBeDone = change.kind == Change::Kind::executionPublished;
      if (mayBeDone && !context.model.safety->taskSafetyWorking()) loop.quit();
    });
    if (context.model.safety->taskSafetyWorking()) loop.run();
    for (const auto& note : context.model.safety->notes()) complain(onOneLine(note));
    if (const auto& error = context.model.executions.mirror().errorMessage) {
      complain(*error);
      return out.finish(exitStatus::failed);
    }
    report(context, *key);
    return out.finish(exitStatus::completed);
  });
}

}  // namespace vantrell::shell
