// Updates from a real child process through framing, parsing, the dialect and the intake to an
// observer, against parsing the same lines and nothing else.
#include "app/stream_fixture.h"
#include "platform/text.h"
#include "ratio.h"

using namespace vantrell;

int main() {
  if (bench::wasStreamAgent()) return 0;
  constexpr int lineCount = 200'000;
  constexpr int linesOfAMessage = 100;
  int status = EXIT_SUCCESS;
  for (const auto& dialect : bench::streamDialects()) {
    std::string lines;
    for (int i = 0; i < lineCount; ++i) {
      lines +=
          dialect.update(fmt::format("msg-{}", i / linesOfAMessage), "a few words of it ") + "\n";
    }
    bench::StreamFixture fixture(dialect, lines);

    const auto stream = [&] {
      bench::Clock::time_point start, end;
      int seen = 0;
      fixture.run([&] { start = bench::Clock::now(); },
                  [&](const Change& change) {
                    seen += change.kind == Change::Kind::textAdded ||
                            change.kind == Change::Kind::entryAdded;
                  },
                  [&](const Transcript&) { end = bench::Clock::now(); });
      if (seen < lineCount) std::abort();
      return end - start;
    };
    const auto parse = [&] {
      return bench::timed([&] {
        int parsed = 0;
        for (const auto line : text::split(lines, '\n'))
          parsed += json::parseObject(line).has_value();
        if (parsed != lineCount) std::abort();
      });
    };
    const auto found = bench::compare(15, stream, parse);
    const double seconds = std::chrono::duration<double>(found.ours).count();
    fmt::print("{}: {:.0f} updates a second, {:.0f} MB/s, ratio of the medians {:.2f}\n",
               dialect.name, lineCount / seconds, static_cast<double>(lines.size()) / 1e6 / seconds,
               found.ratio());
    // A throughput of at least half of parsing alone is at most twice its time.
    status |= bench::report({"time of an update to the observer", "parsing its line alone", 2.0},
                            found.bestRatio());
  }
  return status;
}
