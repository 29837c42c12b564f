// Answers into blocks: a long one against cmark on the same bytes, streams against parses of the
// whole, and hostile texts of twice the length against those of the length.
#include <cmark.h>
#include <string>

#include "presentation/incremental_blocks.h"
#include "presentation/response_formatting.h"
#include "presentation/spoken_text.h"
#include "ratio.h"

namespace {

using namespace vantrell;

/// About 700 bytes as agents write them.
constexpr std::string_view section =
    "## How the reader works\n\n"
    "The reader takes the **bytes** as they come and begins again at the last settled block, so "
    "that `append` costs what the chunk costs.\nA second line of the same paragraph follows "
    "here.\n\n"
    "- It finds the end of the line, and reads on from there\n"
    "- It goes back to the block, see [the notes](notes.md)\n"
    "  - and for the header of a table\n"
    "1. Build the program\n2. Run the tests\n\n"
    "| Step | Cost | Note |\n|------|-----:|------|\n| read | 3 ns | a byte |\n| show | 80 ns | a "
    "block |\n\n"
    "```cpp\nvoid append(std::string_view text) {\n  buffer += text;  // grows\n\n  "
    "update();\n}\n```\n\n"
    "> What is settled never changes.\n\n"
    "- [x] Größe und Maß geprüft\n- [ ] 文書を書く\n\n---\n\n";

std::string answer(std::size_t bytes) {
  std::string text;
  while (text.size() < bytes) text += section;
  text.resize(bytes);
  return text;
}

/// Comes in so many chunks, each of which is read.
void stream(std::string_view text, std::size_t chunks) {
  IncrementalBlocks growing;
  for (std::size_t i = 0; i < chunks; ++i) {
    const std::size_t from = text.size() * i / chunks;
    growing.append(text.substr(from, text.size() * (i + 1) / chunks - from));
    if (growing.settledCount() > growing.blocks().size()) std::abort();
  }
}

/// The same by parses of all that has come.
void parseAgain(std::string_view text, std::size_t chunks) {
  for (std::size_t i = 0; i < chunks; ++i) {
    if (ResponseFormatting::blocks(text.substr(0, text.size() * (i + 1) / chunks)).empty()) {
      std::abort();
    }
  }
}

auto whole(const std::string& text) {
  return [&text] {
    std::vector<ResponseBlock> blocks;
    bench::joinFreedMemory();
    const auto time = bench::processorTimed([&] { blocks = ResponseFormatting::blocks(text); });
    if (blocks.empty()) std::abort();
    return time;
  };
}

int againstCmark() {
  const std::string text = answer(1 << 20);
  const auto parsed = [&text] {
    cmark_node* document = nullptr;
    bench::joinFreedMemory();
    const auto time = bench::processorTimed(
        [&] { document = cmark_parse_document(text.data(), text.size(), CMARK_OPT_DEFAULT); });
    cmark_node_free(document);
    return time;
  };
  const auto found = bench::compare(40, whole(text), parsed);
  fmt::print("blocks of 1 MiB: {} us\n",
             std::chrono::duration_cast<std::chrono::microseconds>(found.ours).count());
  return bench::report({"blocks of 1 MiB of answer", "cmark's parse", 0.7}, found);
}

/// In 500 chunks. A window that is drawn 30 times a second reads 17 seconds of an answer so often.
int streamed() {
  constexpr std::size_t chunks = 500;
  const auto streaming = [](const std::string& text, std::size_t count) {
    return [&text, count] { return bench::processorTimed([&] { stream(text, count); }); };
  };
  const auto again = [](const std::string& text, std::size_t count) {
    return [&text, count] { return bench::processorTimed([&] { parseAgain(text, count); }); };
  };
  const std::string large = answer(1 << 20);
  int missed = bench::report({"1 MiB of answer in 500 chunks", "one parse of the whole", 2},
                             bench::compare(20, streaming(large, chunks), whole(large)));
  const std::string small = answer(8 << 10);
  missed |= bench::report({"8 KiB of answer in 500 chunks", "parsing all of it 500 times", 0.25},
                          bench::compare(40, streaming(small, chunks), again(small, chunks)));
  // The worst case: nothing settles. A read costs no more than a parse of what there is.
  std::string paragraph;
  while (paragraph.size() < 1 << 20) paragraph += "a line of one long paragraph ";
  paragraph.insert(0, "# Title\n\n");
  constexpr std::size_t reads = 20;
  return missed |
         bench::report({"one paragraph of 1 MiB in 20 chunks", "parsing all of it 20 times", 1.3},
                       bench::compare(10, streaming(paragraph, reads), again(paragraph, reads)));
}

/// Twice as long may take twice as long, and not four times.
template <typename Work>
int growsAsItsInput(std::string_view what, std::string_view beginning, std::string_view piece,
                    Work work) {
  const auto of = [&](std::size_t bytes) {
    std::string text(beginning);
    while (text.size() < bytes) text += piece;
    return text;
  };
  constexpr std::size_t bytes = 64 << 10;
  const std::string once = of(bytes);
  const std::string twice = of(2 * bytes);
  const auto timing = [&work](const std::string& text) {
    return [&] { return bench::processorTimed([&] { work(text); }); };
  };
  // Quadratic would be 4; the rest is for caches and the noise of the machine, of which a second
  // look gets rid.
  constexpr double limit = 3;
  double ratio = bench::compare(5, timing(twice), timing(once)).bestRatio();
  if (ratio > limit) ratio = bench::compare(30, timing(twice), timing(once)).bestRatio();
  if (ratio <= limit) return EXIT_SUCCESS;
  const auto named = fmt::format("{} of {:?} and many {:?}", what, beginning, piece);
  return bench::report({named, "half of it", limit}, ratio);
}

int linear() {
  using namespace std::string_view_literals;
  const std::string_view beginnings[] = {"",      "x\n\n", "a|b\n",  "a|b\n---|---\nx|", "1. ",
                                         "```\n", "```",   "- [x] ", "a|b|c\n"};
  // Marks without an end, marks in marks, characters without an end, and bytes that are no text.
  const std::string_view pieces[] = {"aaaaaaaa",
                                     "\xCC\x81",
                                     "e\xCC\x81\xCC\x81",
                                     "\xF0\x9F\x91\xA9\xE2\x80\x8D",
                                     "\0"sv,
                                     "\xFF",
                                     "0",
                                     "|",
                                     "-",
                                     "#",
                                     "`",
                                     ">",
                                     "*",
                                     "1. ",
                                     "- - ",
                                     "a|",
                                     " ",
                                     "        x",
                                     "\n",
                                     "\r\n",
                                     "\n\n\n\n\n\n\nx",
                                     "|1|2|\n",
                                     "a|b\n---|---\n",
                                     ".The9 ab",
                                     ".Abcdefg",
                                     "Abc. Def"};
  const auto atOnce = [](const std::string& text) { (void)ResponseFormatting::blocks(text); };
  const auto inChunks = [](const std::string& text) { stream(text, text.size() / 16); };
  const auto speak = [](const std::string& text) {
    if (SpokenText::render(text).empty()) std::abort();
  };
  int missed = 0;
  for (const auto beginning : beginnings) {
    for (const auto piece : pieces) missed |= growsAsItsInput("blocks", beginning, piece, atOnce);
  }
  missed |= growsAsItsInput("chunks", "", section, inChunks);
  missed |= growsAsItsInput("speech", "", section, speak);
  fmt::print("hostile texts: {}\n", missed == 0 ? "time grows as the text does" : "MISSED");
  return missed;
}

}  // namespace

int main() {
  bench::keepFreedMemory();
  return againstCmark() | streamed() | linear();
}
