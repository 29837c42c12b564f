#include "runtimes/wire/line_buffer.h"

#include <gtest/gtest.h>
#include <vector>

namespace vantrell {
namespace {

std::vector<std::string> linesOf(const std::vector<std::string_view>& chunks) {
  std::vector<std::string> lines;
  LineBuffer buffer;
  for (const auto chunk : chunks) {
    buffer.consume(chunk, [&lines](std::string_view line) { lines.emplace_back(line); });
  }
  return lines;
}

TEST(LineBuffer, CutsAtLineFeedsAndSkipsEmptyLines) {
  using Lines = std::vector<std::string>;
  const std::pair<std::vector<std::string_view>, Lines> cases[] = {
      {{}, {}},
      {{""}, {}},
      {{"\n\n\n"}, {}},
      {{"a\nb\n"}, {"a", "b"}},
      {{"a\nb"}, {"a"}},
      {{"a", "b", "\n", "\n", "c\n"}, {"ab", "c"}},
      {{"a\r\n \n"}, {"a\r", " "}},
      {{"a", "\nb\nc", "d\n"}, {"a", "b", "cd"}},
      {{std::string_view("\0\n", 2)}, {std::string(1, '\0')}},
  };
  for (const auto& [chunks, expected] : cases) EXPECT_EQ(linesOf(chunks), expected);
}

}  // namespace
}  // namespace vantrell
