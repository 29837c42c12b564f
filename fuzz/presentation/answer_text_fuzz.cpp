// Any text, cut anywhere: the blocks that grow are those of the whole, blocks that are settled
// stay, nothing but marks of the layout is lost, speech is one line, and a document has what was
// said. The first bytes of an input choose the cuts.
#include <cstdint>
#include <cstdlib>

#include "platform/text/text.h"
#include "presentation/conversation_markdown.h"
#include "presentation/incremental_blocks.h"
#include "presentation/kept_text.h"
#include "presentation/response_formatting.h"
#include "presentation/spoken_text.h"
#include "presentation/tool_grouping.h"

using namespace vantrell;

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

bool areAlike(const std::vector<ResponseBlock>& one, const std::vector<ResponseBlock>& other) {
  return std::ranges::equal(one, other, &ResponseBlock::looksLike);
}

void growInChunks(std::string_view cuts, std::string_view text) {
  IncrementalBlocks growing;
  std::vector<ResponseBlock> settled;
  std::string_view rest = text;
  for (std::size_t i = 0; !rest.empty(); ++i) {
    const std::size_t length =
        std::min<std::size_t>(rest.size(), 1 + static_cast<unsigned char>(cuts[i % cuts.size()]));
    growing.append(rest.substr(0, length));
    rest.remove_prefix(length);
    const auto& blocks = growing.blocks();
    require(growing.settledCount() >= settled.size() && growing.settledCount() <= blocks.size());
    for (std::size_t k = 0; k < settled.size(); ++k) {
      require(settled[k].looksLike(blocks[k]) && settled[k].id == blocks[k].id);
    }
    settled.assign(blocks.begin(),
                   blocks.begin() + static_cast<std::ptrdiff_t>(growing.settledCount()));
    const std::string_view now = text.substr(0, text.size() - rest.size());
    if (text.size() < 1000) {
      require(areAlike(blocks, ResponseFormatting::blocks(now)));
    }
  }
  require(areAlike(growing.blocks(), ResponseFormatting::blocks(text)));
}

std::vector<ChatEntry> entriesOf(std::string_view text) {
  std::vector<ChatEntry> entries;
  for (const auto line : text::split(text, '\n')) {
    ChatEntry entry;
    entry.kind = line.starts_with(' ')    ? ChatEntryKind::assistant
                 : line.starts_with('\t') ? ChatEntryKind::system
                                          : ChatEntryKind::tool;
    const std::size_t colon = std::min(line.find(':'), line.size());
    entry.title = std::string(line.substr(0, colon));
    entry.text = line.substr(colon);
    entries.push_back(std::move(entry));
  }
  return entries;
}

void group(const std::vector<ChatEntry>& entries) {
  std::size_t grouped = 0;
  for (const auto& item : ToolGrouping::transcriptItems(entries)) {
    const auto* tools = std::get_if<ToolEntryGroup>(&item);
    require(!tools || tools->entries.size() > 1);
    for (std::size_t i = 0; i < (tools ? tools->entries.size() : 1); ++i, ++grouped) {
      const ChatEntry& entry = tools ? tools->entries[i] : std::get<ChatEntry>(item);
      require(entry == entries[grouped] && !ToolGrouping::summary(entry).contains('\n'));
    }
  }
  require(grouped == entries.size());
}

void write(const std::vector<ChatEntry>& entries) {
  const std::string document =
      ConversationMarkdown::render("title", std::nullopt, Transcript(entries));
  std::string_view rest = document;
  const auto has = [&rest](std::string_view part) {
    require(rest.starts_with(part));
    rest.remove_prefix(part.size());
  };
  has("# title");
  for (const ChatEntry& entry : entries) {
    const auto body = text::trimmed(entry.text);
    if (entry.kind == ChatEntryKind::tool || body.empty()) continue;
    has("\n\n## ");
    has(entry.kind == ChatEntryKind::assistant ? "Assistant" : *entry.title);
    has("\n\n");
    has(body);
  }
  require(rest == "\n");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string_view cuts = input.substr(0, std::min<std::size_t>(4, size));
  const std::string_view text = input.substr(cuts.size());
  growInChunks(cuts, text);
  require(testing::lostOf(text).empty());
  const std::string spoken = SpokenText::render(text);
  require(text::isValidUtf8(spoken) && !spoken.contains('\n') && !spoken.contains("  "));
  const auto entries = entriesOf(text);
  group(entries);
  write(entries);
  return 0;
}
