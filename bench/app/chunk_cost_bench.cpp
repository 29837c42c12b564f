// What one chunk of a stream costs in transcripts of different lengths: it must not depend on them.

#include "app/app_model.h"
#include "app/app_parts.h"
#include "bench_folder.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/storage/user_defaults.h"
#include "ratio.h"
#include "records/stores/workspace_store.h"
#include "support/fake_services.h"

using namespace vantrell;

namespace {

class Conversation {
 public:
  explicit Conversation(int entries)
      : defaults_(UserDefaults::inMemory()),
        store_(*defaults_, folder_.path()),
        app_({.main = main_,
              .defaults = *defaults_,
              .store = store_,
              .providers = providers_,
              .projects = projects_,
              .events = events_,
              .programs = programs_,
              .supportFolder = folder_.path()}),
        model_(app_.parts()),
        key_(*model_.selection.key()) {
    model_.executions.execution(key_);
    for (int i = 0; i < entries; ++i) chunk("message-" + std::to_string(i));
  }

  /// A round of chunks for the last message, as a stream sends them.
  bench::Clock::duration round() {
    const std::string last = model_.tree.thread(key_)->entries.back().id;
    const JsonObject update = made(last);
    // The text is put back after the round, so that every round appends to a short one.
    const auto time = bench::timed([&] {
      for (int i = 0; i < chunksOfARound; ++i) model_.intake.handle(update, key_);
      main_.runReady();  // the announcement
    });
    model_.tree.updateEntry(last, key_, [](ChatEntry& entry) { entry.text = "x"; });
    return time;
  }

  static constexpr int chunksOfARound = 20'000;

 private:
  static JsonObject made(const std::string& id) {
    return {{"sessionUpdate", "agent_message_chunk"},
            {"messageId", id},
            {"content", JsonObject{{"type", "text"}, {"text", "some words "}}}};
  }
  void chunk(const std::string& id) { model_.intake.handle(made(id), key_); }

  bench::Folder folder_;
  ManualMainQueue main_;
  std::unique_ptr<UserDefaults> defaults_;
  WorkspaceStore store_;
  tests::FakeProviders providers_;
  tests::FakeProjects projects_;
  EngineEvents events_;
  RuntimePrograms programs_;
  AppModel app_;
  AppParts& model_;
  ThreadExecutionKey key_;
};

}  // namespace

int main() {
  Conversation shortest(10), middle(1'000), longest(100'000);
  int status = 0;
  for (auto* each : {&middle, &longest}) {
    const auto found =
        bench::compare(51, [&] { return each->round(); }, [&] { return shortest.round(); });
    const double nanoseconds = std::chrono::duration<double, std::nano>(found.ours).count();
    fmt::print("{:.0f} ns a chunk\n", nanoseconds / Conversation::chunksOfARound);
    status |= bench::report(
        {each == &middle ? "a chunk among 1,000 entries" : "a chunk among 100,000 entries",
         "one among 10", 1.5},
        found);
  }
  return status;
}
