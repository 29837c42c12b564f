// Grouping a transcript of 100,000 entries, against copying it once.
#include <string>
#include <vector>

#include "presentation/tool_grouping.h"
#include "ratio.h"

namespace {

using namespace vantrell;

std::vector<ChatEntry> transcript(std::size_t count) {
  constexpr std::string_view titles[] = {"Read src/platform/text.cpp",
                                         "Read src/platform/text.cpp",
                                         "Edit file main.cpp",
                                         "Run the tests",
                                         "Run the tests",
                                         "web_search: ICU"};
  std::vector<ChatEntry> entries;
  for (std::size_t i = 0; i < count; ++i) {
    ChatEntry entry;
    entry.id = "toolu_" + std::to_string(i);
    entry.kind = i % 8 == 0 ? ChatEntryKind::assistant : ChatEntryKind::tool;
    entry.title = std::string(titles[i % std::size(titles)]);
    entry.status = "completed";
    entry.text = i % 3 == 0
                     ? R"({"command": "ctest --preset dev -R Text", "timeout": 600})"
                     : R"({"path": "/home/ada/project/src/platform/text.cpp", "limit": 200})";
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace

int main() {
  bench::keepFreedMemory();
  const auto entries = transcript(100'000);
  const auto found = bench::compare(
      10,
      [&] {
        auto copy = entries;
        std::vector<TranscriptItem> items;
        const auto time =
            bench::processorTimed([&] { items = ToolGrouping::transcriptItems(std::move(copy)); });
        if (items.empty()) std::abort();
        return time;
      },
      [&] {
        std::vector<ChatEntry> copy;
        return bench::processorTimed([&] { copy = entries; });
      });
  fmt::print("grouping 100,000 entries: {} ms\n",
             std::chrono::duration_cast<std::chrono::milliseconds>(found.ours).count());
  return bench::report({"grouping 100,000 entries", "copying them", 6}, found);
}
