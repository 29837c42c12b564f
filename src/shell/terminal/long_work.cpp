#include "shell/terminal/long_work.h"

#include <unistd.h>

#include "shell/terminal/command.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/standard_output.h"

namespace vantrell::shell {

namespace {

constexpr std::chrono::milliseconds endOfChildren{5000};
constexpr std::chrono::hours readersTime{24};  // to read what is left
constexpr std::chrono::milliseconds unnoticed{1000};
constexpr std::chrono::milliseconds betweenLooks{10};

/// A stopped task may leave git at work on its checkpoint or worktree, and the program ends when
/// that is done: who waits longer than a moment is told why.
void tellOfGit(RunLoop& loop, const TaskSafety& safety) {
  const Duration end = loop.uptime() + unnoticed;
  const Timer look = loop.every(betweenLooks, [&] {
    if (!safety.isAtWork() || loop.uptime() >= end) loop.quit();
  });
  if (safety.isAtWork()) loop.run();
  if (!safety.isAtWork()) return;
  complain("Git is still at work on a checkpoint or a worktree; this ends when that is done.");
}

}  // namespace

int performLongWork(VantrellOptions options, const std::function<int(LongWork&)>& work) {
  RunLoop loop;
  OutputSink output(loop, STDOUT_FILENO);
  int status = exitStatus::failed;
  bool wasAbandoned = false;
  {
    auto app = VantrellApp::start(loop, std::move(options));
    if (!app) {
      complain(app.error());
      return exitStatus::failed;
    }
    if (const auto& notice = (*app)->notice()) complain(*notice);
    LongWork at{loop, **app, output};
    status = work(at);
    wasAbandoned = at.wasAbandoned;
    tellOfGit(loop, *(*app)->model().safety);
  }
  // The state is free for the next start; the rest is only about reading and cleaning up. Who wants
  // to leave at once leaves: what still runs ends with this program.
  Process::waitForAll(wasAbandoned ? momentToFlush : endOfChildren);
  output.flush(wasAbandoned ? momentToFlush : readersTime);
  const auto why = whyOutputFailed(output.error());
  if (why.empty()) return status;
  complain(why);
  return exitStatus::failed;
}

}  // namespace vantrell::shell
