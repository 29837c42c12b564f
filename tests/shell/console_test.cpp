#include "shell/terminal/console.h"

#include <gtest/gtest.h>

namespace vantrell::shell {
namespace {

TEST(Console, LetsOnlyOurOwnSequencesReachATerminal) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"plain\ttext\n", "plain\ttext\n"},
      {"\x1b[1mbold\x1b[0m", "\x1b[1mbold\x1b[0m"},
      {"\r\x1b[Kstatus\r", "\r\x1b[Kstatus\r"},
      {"\x1b[2Aup", "\x1b[2Aup"},
      {"\x1b]0;title\x07", "␛]0;title␇"},
      {"\x1b[2;5H", "␛[2;5H"},
      {"\x1b[?1049h", "␛[?1049h"},
      {"over\rwritten", "over␍written"},
      {"\x1b", "␛"},
      {"a\xE2\x80\xAE z", "a<U+202E> z"},
      {"\xC2\x9B"
       "31m",
       "<U+009B>31m"},
      {"\xFF", "\xEF\xBF\xBD"},
  };
  for (const auto& [text, safe] : cases) EXPECT_EQ(safeForTerminal(text), safe);
}

}  // namespace
}  // namespace vantrell::shell
