// What reading a line of an agent costs against copying the value that it gives: a copy makes the
// same allocations, so the ratio is what the reader adds to the least that any reader must do.
// Every line of every agent passes here.
#include <fmt/format.h>

#include "platform/values/json.h"
#include "ratio.h"

using namespace vantrell;

namespace {

constexpr int linesInRound = 2'000;

struct Line {
  std::string_view name;
  std::string_view text;
  double limit;
};

constexpr Line lines[] = {
    {"message chunk",
     R"({"jsonrpc":"2.0","method":"session/update","params":{)"
     R"("sessionId":"0198c1f0-7d1e-7c3c-9f7b-2f7a4d0b6a11","update":{)"
     R"("sessionUpdate":"agent_message_chunk","content":{"type":"text",)"
     R"("text":"some words of an answer that goes on a little"}}}})",
     4},
    {"tool call",
     R"({"jsonrpc":"2.0","method":"session/update","params":{)"
     R"("sessionId":"0198c1f0-7d1e-7c3c-9f7b-2f7a4d0b6a11","update":{)"
     R"("sessionUpdate":"tool_call_update","toolCallId":"call_12","status":"completed",)"
     R"("content":[{"type":"content","content":{"type":"text",)"
     R"("text":"int main() {\n  return 0;\n}\n// na\u00efve \"quotes\"\tand tabs\n"}}],)"
     R"("rawOutput":{"exitCode":0,"durationMs":12.5,"lines":[1,2,3,4,5,6]}}}})",
     4},
};

int compareWithCopying(const Line& line) {
  const Json value = *json::parse(line.text);
  std::size_t used = 0;  // keeps the results from being optimized away
  const auto found = bench::compare(
      200,
      [&] {
        return bench::processorTimed([&] {
          for (int i = 0; i < linesInRound; ++i) used += json::parse(line.text)->asObject()->size();
        });
      },
      [&] {
        return bench::processorTimed([&] {
          for (int i = 0; i < linesInRound; ++i) used += Json(value).asObject()->size();
        });
      });
  if (used == 0) std::abort();
  const double seconds = std::chrono::duration<double>(found.ours).count();
  fmt::print("{}: {:.0f} MB/s here\n", line.name,
             static_cast<double>(linesInRound * line.text.size()) / seconds / 1e6);
  return bench::report({fmt::format("reading a {}", line.name), "copying its value", line.limit},
                       found);
}

}  // namespace

int main() {
  int status = EXIT_SUCCESS;
  for (const Line& line : lines) status |= compareWithCopying(line);
  return status;
}
