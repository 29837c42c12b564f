#include "project/project_hook_service.h"

#include <filesystem>
#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/process/process.h"
#include "platform/text/tail_buffer.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

/// The file to start; absent when it is none, or not inside the folder, be it by its name or by
/// where links on the way lead.
std::optional<std::string> executableOf(const ProjectHook& hook, const std::string& root) {
  const std::string path = files::standardized(root + "/" + hook.relativeExecutablePath);
  if (!path.starts_with(root + "/") || !files::isExecutable(path)) return std::nullopt;
  std::error_code code;
  const auto realRoot = std::filesystem::canonical(root, code).native();
  if (code) return std::nullopt;
  const auto realPath = std::filesystem::canonical(path, code).native();
  if (code || !realPath.starts_with(realRoot + "/")) return std::nullopt;
  return path;
}

ProcessOptions optionsFor(const ProjectHook& hook, std::string executable,
                          const std::string& root) {
  ProcessOptions options;
  options.executable = std::move(executable);
  options.environment = currentEnvironment();
  options.environment["VANTRELL_HOOK_EVENT"] = rawText(hook.event);
  options.environment["VANTRELL_WORKSPACE"] = root;
  options.workingFolder = root;
  options.standardInput = ProcessOptions::Input::null;
  options.mergeErrorIntoOutput = true;
  options.ownSession = true;  // the terminal is the user's
  return options;
}

/// All that a hook writes is read, so that it never waits for room; its end is kept.
class HookOutput {
 public:
  void append(std::string_view bytes) {
    total_ += bytes.size();
    tail_.append(bytes);
  }
  std::string text() const {
    const std::string whole = text::repaired(tail_.contents());
    const std::string_view trimmed = text::trimmed(whole);
    if (!tail_.wasTruncated()) return std::string(trimmed);
    return fmt::format("[The last {} KiB of {} bytes of output:]\n{}",
                       ProjectHookService::keptOutput / 1024, total_, trimmed);
  }

 private:
  TailBuffer tail_{ProjectHookService::keptOutput};
  std::uint64_t total_ = 0;  // bytes
};

ProjectHookOutcome outcomeOf(ExitStatus status, bool hasRunOut, const std::string& output) {
  if (hasRunOut) return {.text = "Hook timed out after 30 seconds.\n" + output};
  if (status.code() != 0) {
    return {.text = fmt::format("Hook exited with status {}.\n{}", status.code(), output)};
  }
  return {.text = output.empty() ? "Hook completed." : output, .succeeded = true};
}

}  // namespace

/// Its fields belong to its queue.
struct ProjectHookService::Run : std::enable_shared_from_this<Run> {
  explicit Run(BackgroundPool& pool) : queue(pool, "com.local.vantrell.hook") {}

  const SerialQueue queue;
  std::shared_ptr<Process> process;
  HookOutput output;
  bool hasRunOut = false;
  bool isStopped = false;

  void start(const ProjectHook& hook, const std::string& workspacePath,
             const std::function<void()>& didStart, const Reply& end) {
    if (isStopped) return;
    const std::string root = files::standardized(workspacePath);
    auto executable = executableOf(hook, root);
    if (!executable) {
      return end(
          {.text = fmt::format("Hook skipped: {} is not an executable file inside the project.",
                               hook.relativeExecutablePath)});
    }
    Process::Handlers handlers;
    handlers.onOutput = [self = shared_from_this()](std::string_view bytes) {
      self->output.append(bytes);
    };
    handlers.onExit = [self = shared_from_this(), end](ExitStatus status) {
      end(outcomeOf(status, self->hasRunOut, self->output.text()));
    };
    auto child =
        Process::start(optionsFor(hook, *std::move(executable), root), queue, std::move(handlers));
    if (!child) return end({.text = "Hook failed to start: " + child.error().description});
    process = std::move(*child);
    didStart();
  }

  void runOut() {
    hasRunOut = true;
    if (process) process->terminate();
  }

  void stop() {
    isStopped = true;
    if (process) process->stop();
  }
};

ProjectHookService::~ProjectHookService() {
  for (auto& [id, entry] : runs_) {
    entry.run->queue.post([run = entry.run] { run->stop(); });
  }
}

void ProjectHookService::run(const ProjectHook& hook, const std::string& workspacePath,
                             Reply reply) {
  const int id = nextID_++;
  const auto run = std::make_shared<Run>(pool_);
  runs_.emplace(id, Entry{.run = run, .reply = std::move(reply), .limit = {}});
  const std::weak_ptr weak = weak_from_this();
  const auto didStart = [&main = main_, weak, id] {
    main.post([weak, id] {
      if (const auto self = weak.lock()) self->started(id);
    });
  };
  const auto end = [&main = main_, weak, id](ProjectHookOutcome outcome) {
    main.post([weak, id, outcome = std::move(outcome)]() mutable {
      if (const auto self = weak.lock()) self->ended(id, std::move(outcome));
    });
  };
  run->queue.post([run, hook, workspacePath, didStart, end] {
    run->start(hook, workspacePath, didStart, end);
  });
}

// Not before the program runs: threads may have been busy, which is not the hook's fault.
void ProjectHookService::started(int id) {
  const auto place = runs_.find(id);
  if (place == runs_.end()) return;
  place->second.limit = main_.after(
      timeLimit, [run = place->second.run] { run->queue.post([run] { run->runOut(); }); });
}

void ProjectHookService::ended(int id, ProjectHookOutcome outcome) {
  auto node = runs_.extract(id);
  if (!node.empty()) node.mapped().reply(std::move(outcome));
}

}  // namespace vantrell
