// Updates from a real child process through framing, parsing, the dialect and the intake to an
// observer, against parsing the same lines and nothing else. The connection's queue and the main
// queue work at the same time, so the busier of the two sets the pace: its processor time is what
// counts, which other load on the machine does not change. Takes the name of a dialect to measure
// that one alone.
#include "app/stream_fixture.h"
#include "platform/text/text.h"
#include "ratio.h"

using namespace vantrell;

int main(int count, char** arguments) {
  if (bench::wasStreamAgent()) return 0;
  constexpr int lineCount = 200'000;
  constexpr int linesOfAMessage = 100;
  static constexpr std::string_view words = "a few words of it ";
  int status = EXIT_SUCCESS;
  for (const auto& dialect : bench::streamDialects()) {
    if (count > 1 && dialect.name != arguments[1]) continue;
    std::string lines;
    for (int i = 0; i < lineCount; ++i) {
      lines +=
          dialect.update(fmt::format("msg-{}", i / linesOfAMessage), std::string(words)) + "\n";
    }
    bench::StreamFixture fixture(dialect, lines);

    const auto stream = [&] {
      std::chrono::nanoseconds all{}, main{};
      int seen = 0;
      fixture.run(
          [&] {
            all = bench::processorTime();
            main = bench::threadProcessorTime();
          },
          [](const ChangeBatch&, const WorkspaceTree&) {},
          [&](const Transcript& entries) {
            for (const auto& entry : entries) {
              if (entry.provider) seen += static_cast<int>(entry.text.size() / words.size());
            }
            main = bench::threadProcessorTime() - main;
            all = bench::processorTime() - all;
          });
      if (seen < lineCount) std::abort();
      return std::max(main, all - main);
    };
    const auto parse = [&] {
      return bench::processorTimed([&] {
        int parsed = 0;
        for (const auto line : text::split(lines, '\n'))
          parsed += json::parseObject(line).has_value();
        if (parsed != lineCount) std::abort();
      });
    };
    const auto found = bench::compareUntilSteady(20, 100, stream, parse);
    const double seconds = std::chrono::duration<double>(found.ours).count();
    fmt::print("{}: {:.0f} updates a second, {:.0f} MB/s, ratio of the medians {:.2f}\n",
               dialect.name, lineCount / seconds, static_cast<double>(lines.size()) / 1e6 / seconds,
               found.ratio());
    status |= bench::report(
        {"time of an update to the observer", "parsing its line alone", dialect.limit},
        found.bestRatio());
  }
  return status;
}
