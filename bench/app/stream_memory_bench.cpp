// Peak memory while 100 MB of updates become entries of 10 MB in all. The agent writes faster than
// the intake reads; what waits between them is bounded.
#include <fstream>

#include "app/stream_fixture.h"
#include "process_memory.h"
#include "ratio.h"

using namespace vantrell;

int main() {
  if (bench::wasStreamAgent()) return 0;
  const auto& dialect = bench::streamDialects()[0];
  double before = 0, peak = 0, kept = 0, sent = 0;
  {
    constexpr int messages = 1'000;
    constexpr int linesOfAMessage = 512;
    std::string lines;
    for (int message = 0; message < messages; ++message) {
      const std::string line =
          dialect.update(fmt::format("msg-{}", message), "twenty bytes of text") + "\n";
      for (int i = 0; i < linesOfAMessage; ++i) lines += line;
    }
    sent = static_cast<double>(lines.size());
    bench::StreamFixture fixture(dialect, lines);
    std::string().swap(lines);
    bool isStreaming = false;
    fixture.run(
        [&] {
          if (std::exchange(isStreaming, true)) return;
          before = bench::memory("VmRSS");
          std::ofstream("/proc/self/clear_refs") << "5";  // the peak starts anew
        },
        [](const ChangeBatch&, const WorkspaceTree&) {},
        [&](const Transcript& entries) {
          // Before the end of the run is stored: storing is measured with the store.
          peak = bench::memory("VmHWM");
          for (const auto& entry : entries) kept += static_cast<double>(entry.text.size());
        });
  }
  fmt::print("{:.0f} MB of updates, {:.1f} MB of entries, peak {:.1f} MB above the start\n",
             sent / 1e6, kept / 1e6, (peak - before) / 1e6);
  return bench::report({"peak memory of a stream", "the entries it leaves", 3.0},
                       (peak - before) / kept);
}
