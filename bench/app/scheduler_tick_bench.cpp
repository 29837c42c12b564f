// What a tick of the automations' scheduler costs with 1,000 recipes: when none is due, against a
// bare look at the same dates; and when all are due and go to a host, against writing the list
// once.
#include "app/app_model.h"
#include "app/app_parts.h"
#include "automations/automations_module.h"
#include "bench_folder.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/storage/user_defaults.h"
#include "ratio.h"
#include "records/stores/workspace_store.h"
#include "support/fake_services.h"

using namespace vantrell;

namespace {

constexpr int count = 1000;
constexpr int ticksOfARound = 100;

struct WillingFleet final : FleetDispatch {
  int prompts = 0;
  bool hasHost(const Uuid&) const override { return true; }
  void dispatchTask(const Uuid&, std::string, std::string,
                    std::function<void(Result<>)> done) override {
    ++prompts;
    done({});
  }
  void refreshFleet() override {}
};

}  // namespace

int main() {
  const bench::Folder folder;
  ManualMainQueue main;
  const auto defaults = UserDefaults::inMemory();
  WorkspaceStore store(*defaults, folder.path());
  tests::FakeProviders providers;
  for (const auto each : allAgentProviders) {
    providers.connectors[each] = {each, "", [](const auto&) { return false; }, {}};
  }
  tests::FakeProjects projects;
  RuntimePrograms programs;
  EngineEvents events;
  AppModel app({.main = main,
                .defaults = *defaults,
                .store = store,
                .providers = providers,
                .projects = projects,
                .events = events,
                .programs = programs,
                .supportFolder = folder.path()});
  AppParts& model = app.parts();
  AutomationsModule module({main, model.changes, model.tree, *model.operations, *model.composer,
                            model.executions, model.orchestration, main, main});
  Automations& automations = *module.automations;
  WillingFleet fleet;
  automations.setFleet(&fleet);
  for (int i = 0; i < count; ++i) {
    const auto made =
        automations.createAutomation({.name = fmt::format("Recipe {}", i),
                                      .prompt = "Run the tests and mend what fails.",
                                      .workspaceID = model.tree.workspaces().front().id,
                                      .trigger = AutomationTrigger::daily,
                                      .preferredHostID = Uuid::random()});
    if (!made) std::abort();
  }
  main.runReady();

  int due = 0;
  const auto idle = bench::compare(
      101,
      [&] {
        return bench::processorTimed([&] {
          for (int i = 0; i < ticksOfARound; ++i) automations.runDueAutomations(main.now());
        });
      },
      [&] {
        return bench::processorTimed([&] {
          for (int i = 0; i < ticksOfARound; ++i) {
            const Date now = main.now();
            for (const auto& each : automations.automations()) {
              if (each.enabled && *each.nextRunAt <= now) ++due;
            }
          }
        });
      });
  if (due != 0 || fleet.prompts != 0) std::abort();
  fmt::print("{:.1f} us for a tick without work\n",
             std::chrono::duration<double, std::micro>(idle.ours).count() / ticksOfARound);

  constexpr int rounds = 31;
  const auto busy = bench::compare(
      rounds,
      [&] {
        main.advance(std::chrono::hours(25));
        return bench::timed([&] {
          automations.runDueAutomations(main.now());
          main.runReady();
        });
      },
      [&] {
        return bench::timed([&] {
          module.store.save(automations.automations(), nullptr);
          main.runReady();
        });
      });
  if (fleet.prompts < rounds * count) std::abort();
  return bench::report({"a tick without work of 1,000 recipes", "a look at their dates", 8}, idle) |
         bench::report({"a tick with 1,000 due recipes", "one write of the list", 3}, busy);
}
