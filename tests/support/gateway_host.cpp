// The gateway alone, for programs that call it: `gateway_host BASE_URL [MODEL...]`, with the
// address of a local runtime and the models that it is said to have. Prints one line of JSON with
// the gateway's own address and two site keys, then serves until standard input ends.
#include <fmt/format.h>

#include "platform/queues/line_reader.h"
#include "platform/queues/run_loop.h"
#include "platform/values/json.h"
#include "support/gateway_parts.h"

int main(int count, char** arguments) {
  using namespace vantrell;
  if (count < 2 || !Url::parse(arguments[1])) {
    fmt::print(stderr, "usage: gateway_host BASE_URL [MODEL...]\n");
    return 2;
  }
  RunLoop loop;
  tests::GatewayParts parts(loop);
  parts.serveModels(arguments[1], {arguments + 2, arguments + count});
  if (const auto started = parts.module.server.start("127.0.0.1", 0); !started) {
    fmt::print(stderr, "{}\n", started.error().description);
    return 1;
  }
  const auto line = json::write(
      JsonObject{{"url", "http://127.0.0.1:" + std::to_string(parts.module.server.port())},
                 {"key", parts.key},
                 {"keyWithoutLocal", parts.keyWithoutLocal},
                 {"project", parts.tree.workspaces().front().id.text()}});
  fmt::print("{}\n", line);
  std::fflush(stdout);
  const auto input = LineReader::begin(
      loop, {.descriptor = 0, .onLine = [](const std::string&) {}, .onEnd = [&] { loop.quit(); }});
  loop.run();
  return 0;
}
