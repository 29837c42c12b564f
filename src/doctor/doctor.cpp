#include "doctor/doctor.h"

#include "platform/queues/weakly.h"

namespace vantrell {

Doctor::Doctor(Dependencies dependencies, DoctorSources sources)
    : core_(dependencies), sources_(std::move(sources)) {}

void Doctor::publish(DiagnosticReport report) {
  report_ = std::move(report);
  core_.changes.mark(topics::doctor);
}

// Whether a runtime is ready is known only once the user's own PATH was read, the model server has
// answered and the webhook was looked for.
void Doctor::runConnectionDoctor(std::optional<std::string> workspacePath, Done done) {
  publish({.generatedAt = core_.main.now(), .isRunning = true});
  auto begin =
      weakly(this, [path = std::move(workspacePath), done = std::move(done)](Doctor& self) mutable {
        self.begin(std::move(path), std::move(done));
      });
  auto tasklet = weakly(this, [begin = std::move(begin)](Doctor& self) mutable {
    self.core_.providers.prepare(AgentProvider::tasklet, std::move(begin));
  });
  auto local = weakly(this, [tasklet = std::move(tasklet)](Doctor& self) mutable {
    self.core_.providers.prepare(AgentProvider::local, std::move(tasklet));
  });
  core_.runtimes.readUserPath(std::move(local));
}

void Doctor::begin(std::optional<std::string> workspacePath, Done done) {
  DoctorInput input{.workspacePath = std::move(workspacePath),
                    .remote = sources_.remote(),
                    .fleet = sources_.fleet(),
                    .feeds = sources_.feeds()};
  for (const auto provider : allAgentProviders) {
    input.providers.emplace_back(provider, core_.router.providerAvailable(provider));
  }
  const auto run = std::make_shared<std::weak_ptr<ConnectionDoctor>>();
  const auto started = ConnectionDoctor::run(
      {core_.main, core_.background, core_.http}, std::move(input),
      weakly(this, [run, done = std::move(done)](Doctor& self, DiagnosticReport report) {
        // The run goes on until this returns.
        self.core_.main.post([ended = run->lock()] {});
        self.runs_.erase(run->lock());
        self.publish(report);
        if (done) done(report);
      }));
  *run = started;
  runs_.insert(started);
}

void Doctor::repairCommonIssues(std::optional<std::string> workspacePath, Done done) {
  core_.runtimes.refreshAll();
  core_.providers.refreshLocalRuntime();
  core_.models.refreshSessionControls();
  sources_.refreshSessions();
  sources_.refreshFleet();
  core_.git.refreshGitSnapshot();
  sources_.restartRemoteHost();
  std::erase_if(repairs_, [](const Timer& each) { return !each.isActive(); });
  repairs_.push_back(core_.main.after(
      repairTime,
      weakly(this, [path = std::move(workspacePath), done = std::move(done)](Doctor& self) mutable {
        self.runConnectionDoctor(std::move(path), std::move(done));
      })));
}

}  // namespace vantrell
