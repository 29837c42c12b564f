#include "shell/terminal/plain_words.h"

#include <cstdio>
#include <fmt/format.h>

namespace vantrell::shell {

namespace {

// Formatting straight to a stream throws when the stream is closed.
void put(std::FILE* stream, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

}  // namespace

void tell(std::string_view text) {
  put(stdout, text);
}

void complain(std::string_view text) {
  put(stderr, fmt::format("vantrell: {}\n", text));
}

}  // namespace vantrell::shell
