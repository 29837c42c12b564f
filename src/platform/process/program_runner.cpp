#include "platform/process/program_runner.h"

#include "platform/queues/weakly.h"

namespace vantrell {

/// Its fields belong to its queue.
struct ProgramRunner::Child : std::enable_shared_from_this<Child> {
  explicit Child(BackgroundPool& pool) : queue(pool, "com.local.vantrell.program") {}

  const SerialQueue queue;
  std::shared_ptr<Process> process;
  std::string output;
  bool isStopped = false;
  bool mayLeaveGroup = false;

  void start(Program program, std::function<void(Outcome)> end) {
    if (isStopped) return;
    ProcessOptions options = program.options();
    options.standardInput =
        program.input ? ProcessOptions::Input::pipe : ProcessOptions::Input::null;
    mayLeaveGroup = !options.endGroupWithLeader;
    Process::Handlers handlers;
    handlers.onOutput = [self = shared_from_this()](std::string_view bytes) {
      // The rest is read and dropped: a full pipe would hold the program up.
      self->output.append(bytes.substr(0, keptOutput - self->output.size()));
    };
    handlers.onExit = [self = shared_from_this(), end](ExitStatus status) {
      end({.output = self->output, .status = status.code()});
    };
    auto started = Process::start(std::move(options), queue, std::move(handlers));
    if (!started) return end({.output = started.error().description});
    process = std::move(*started);
    if (!program.input) return;
    process->write(*std::move(program.input));
    process->closeInput();
  }

  void stop() {
    isStopped = true;
    if (process) process->stop();
  }
};

ProgramRunner::~ProgramRunner() {
  for (auto& [id, run] : runs_) survivors_.push_back(run.child);
  for (const auto& child : survivors_) {
    child->queue.post([child] { child->stop(); });
  }
}

void ProgramRunner::run(Program program, Completion completion) {
  const int id = nextID_++;
  const auto child = std::make_shared<Child>(pool_);
  const auto end = [&main = main_, weak = weak_from_this(), id](Outcome outcome) {
    main.post([weak, id, outcome = std::move(outcome)]() mutable {
      if (const auto self = weak.lock()) self->ended(id, std::move(outcome));
    });
  };
  Run run{.child = child, .completion = std::move(completion), .limit = {}};
  if (program.limit) {
    run.limit = main_.after(*program.limit, [child, end] {
      child->queue.post([child, end] {
        child->stop();
        end({.output = child->output, .hasRunOut = true});
      });
    });
  }
  runs_.emplace(id, std::move(run));
  child->queue.post([child, program = std::move(program), end]() mutable {
    child->start(std::move(program), std::move(end));
  });
}

void ProgramRunner::ended(int id, Outcome outcome) {
  auto node = runs_.extract(id);
  if (node.empty()) return;  // ended and out of time in the same moment
  if (node.mapped().child->mayLeaveGroup) survivors_.push_back(node.mapped().child);
  node.mapped().completion(std::move(outcome));
}

}  // namespace vantrell
