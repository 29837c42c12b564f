#include "shell/terminal/plain_words.h"

#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>

namespace vantrell::shell {

namespace {

// Formatting straight to a stream throws when the stream is closed.
void put(std::FILE* stream, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

}  // namespace

std::string asTyped(std::string_view text) {
  std::string typed(text);
  const char* command = std::getenv("VANTRELL_COMMAND");
  if (!command || !*command) return typed;
  for (const std::string_view after : {" run", " --", " help"}) {
    const std::string usual = "vantrell" + std::string(after);
    for (auto at = typed.find(usual); at != std::string::npos; at = typed.find(usual, at)) {
      typed.replace(at, std::string_view("vantrell").size(), command);
      at += std::string_view(command).size();
    }
  }
  return typed;
}

void tell(std::string_view text) {
  put(stdout, asTyped(text));
}

void complain(std::string_view text) {
  put(stderr, fmt::format("vantrell: {}\n", asTyped(text)));
}

}  // namespace vantrell::shell
