// Answers for tests, made from a seed, and blocks as lines to compare.
#pragma once

#include <fmt/format.h>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "platform/text/text.h"
#include "presentation/response_block.h"

namespace vantrell::testing {

/// One line that says all about a block.
inline std::string described(const ResponseBlock& block) {
  using B = ResponseBlock;
  struct Words {
    std::string operator()(const B::Heading& h) const { return fmt::format("h{}", h.level); }
    std::string operator()(const B::Bullet& b) const { return fmt::format("bullet{}", b.depth); }
    std::string operator()(const B::Numbered& n) const {
      return fmt::format("number{} {}", n.depth, n.number);
    }
    std::string operator()(const B::Checklist& c) const {
      return fmt::format("{}{}", c.checked ? "done" : "open", c.depth);
    }
    std::string operator()(const B::Code& c) const {
      return c.language ? fmt::format("code({})", *c.language) : "code";
    }
    std::string operator()(const ResponseTable& t) const {
      std::string words = "table " + text::joined(t.headers, "|");
      for (const auto& row : t.rows) words += " / " + text::joined(row, "|");
      return words;
    }
    std::string operator()(const B::Paragraph&) const { return "p"; }
    std::string operator()(const B::Quote&) const { return "quote"; }
    std::string operator()(const B::Divider&) const { return "divider"; }
  };
  return std::visit(Words{}, block.kind) + ": " + block.text;
}

inline std::vector<std::string> described(const std::vector<ResponseBlock>& blocks) {
  std::vector<std::string> lines;
  for (const auto& block : blocks) lines.push_back(described(block));
  return lines;
}

class AnswerMaker {
 public:
  explicit AnswerMaker(unsigned seed) : random_(seed) {}

  std::size_t below(std::size_t limit) { return random_() % limit; }
  std::string pick(std::span<const std::string_view> choices) {
    return std::string(choices[below(choices.size())]);
  }
  std::string of(std::span<const std::string_view> choices, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += pick(choices);
    return text;
  }

  /// As agents write, with lines that are almost something else now and then.
  std::string answer() {
    // A "~" ends each.
    static const auto pieces = text::split(
        std::string_view(
            "# Title\n~## Two  words ##\n~- one\n~  * two\n~\t\t+ deep\n~\xE2\x80\xA2 round\n~"
            "- [ ] open\n~- [x] done\n~- [X]none\n~1. first\n~  12) second\n~007. agent\n~0) \n~"
            "> quoted\n~>\n~---\n~* * *\n~- -\n~```cpp\nint a;\n~```\n~``` end\n~  x = 1;  \n\n~"
            "a | b\n~a|b\n---|---~|---|:---:|\n~---|---\n~| 1 | 2 |\n~|1|2|3|\n~| "
            "|\n~--|---\n~\n~\n\n~\r\n~\r~"
            "text~ and more~. Then it ends~!Now~ \xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x92\xBB ~"
            "e\xCC\x81~\xE6\xBC\xA2\xE5\xAD\x97~\xC2\xA0~\xE3\x80\x80~\f~1. \f~\xE2\x80\xA8~   ~-~"
            "|~:~`~#~9~*~\n- ~**~`~**bold** ~`code`~(**two `words`**)~``~| **a** | `b` |\n~"),
        '~');
    static constexpr std::string_view broken[] = {"\xE6\xBC", "\xFF", std::string_view("\0", 1),
                                                  "\xF0\x9F\x91", "\xA8"};
    std::string text;
    if (below(3) == 0) text += prose(300 + below(300));
    const bool isBroken = below(8) == 0;
    for (std::size_t i = below(40); i > 0; --i) {
      text += isBroken && below(6) == 0 ? pick(broken) : pick(pieces);
    }
    if (below(4) == 0) text += prose(below(500));
    return text;
  }

  /// Sentences on one line (with few breaks).
  std::string prose(std::size_t bytes) {
    static const auto words =
        text::split(std::string_view("the ~parser ~reads. ~It ~works.Then ~stops! ~Why?~Abc~9 ~"
                                     "\xC3\xA9t\xC3\xA9 ~**so ~it** ~`code ~of`, ~see e.g.Foo9 ~a "
                                     "| b ~quickly ~over ~all of the lines ~"
                                     ".T~.Th~.The~\xCC\x81~\xE3\x80\x82"),
                    '~');
    std::string text;
    while (text.size() < bytes) text += below(150) == 0 ? "\n" : pick(words);
    return text;
  }

  std::string chunkOf(std::string_view rest) {
    const std::size_t most = below(8) == 0 ? 200 : below(3) == 0 ? 3 : 20;
    return std::string(rest.substr(0, 1 + below(most)));
  }

 private:
  std::mt19937 random_;
};

}  // namespace vantrell::testing
