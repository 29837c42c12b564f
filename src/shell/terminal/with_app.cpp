#include "shell/terminal/with_app.h"

#include <fmt/format.h>

#include "shell/terminal/command.h"
#include "shell/terminal/plain_words.h"

namespace vantrell::shell {

int withApp(VantrellOptions options, const std::function<int(RunLoop&, VantrellApp&)>& work) {
  RunLoop loop;
  const auto app = VantrellApp::start(loop, std::move(options));
  if (!app) {
    complain(app.error());
    return exitStatus::failed;
  }
  if (const auto& notice = (*app)->notice()) complain(*notice);
  bool isSaved = true;
  const auto observation = (*app)->model().changes.observe([&](const Change& change) {
    if (change.kind == Change::Kind::noticeRaised) complain(change.text);
    if (change.kind != Change::Kind::saveFailed || !std::exchange(isSaved, false)) return;
    complain(fmt::format(
        "The change could not be saved: {}. Free some space or make the folder writable, then do "
        "it again.",
        change.text));
  });
  const int status = work(loop, **app);
  (*app)->model().tree.flush();
  return isSaved ? status : exitStatus::failed;
}

}  // namespace vantrell::shell
