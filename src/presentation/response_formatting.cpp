#include "presentation/response_formatting.h"

#include "platform/text/text.h"
#include "presentation/block_builder.h"
#include "presentation/dense_prose.h"
#include "presentation/line_reading.h"
#include "presentation/white_space.h"

namespace vantrell::ResponseFormatting {

namespace {

/// "\r\n" and "\r" as "\n". `storage` may hold the text.
std::string_view withLineFeeds(std::string_view text, std::string& storage) {
  if (text.find('\r') == text.npos) return text;
  storage.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
    storage += text[i] == '\r' ? '\n' : text[i];
  }
  return storage;
}

struct Line {
  LineReading reading;
  std::string text;
};

Line read(std::string_view line) {
  LineReader reader;
  reader.read(line, line.size());
  const LineReading reading = reader.reading(line, false);
  return {reading, std::string(line.substr(reading.begin, reading.end - reading.begin))};
}

}  // namespace

std::vector<ResponseBlock> blocks(std::string_view text) {
  BlockList list;
  BlockBuilder(list).take(structureDenseResponse(text));
  return std::move(list.blocks);
}

std::string structureDenseResponse(std::string_view text) {
  std::string storage;
  const std::string_view normalized = text::trimmed(withLineFeeds(text, storage));
  if (normalized.size() <= denseProse::longestPlain ||
      denseProse::StructureSearch().finds(normalized) ||
      text::firstCharacters(normalized, denseProse::longestPlain).size() == normalized.size()) {
    return std::string(normalized);
  }
  const auto paragraphs = denseProse::paragraphs(normalized);
  return paragraphs.empty() ? std::string(normalized) : text::joined(paragraphs, "\n\n");
}

std::optional<std::vector<std::string>> tableCells(std::string_view line) {
  LineReader reader;
  reader.read(line, line.size());
  if (reader.cells() == 0) return std::nullopt;
  return splitCells(white::trimmedOfBlanks(line));
}

std::optional<Heading> heading(std::string_view trimmedLine) {
  auto line = read(trimmedLine);
  if (line.reading.kind != LineReading::Kind::heading) return std::nullopt;
  return Heading{line.reading.level, std::move(line.text)};
}

int indentationDepth(std::string_view line) {
  return LineReader::depth(line);
}

std::optional<Bullet> bullet(std::string_view line) {
  const std::string_view trimmed = white::trimmedOfBlanks(line);
  const std::size_t marker = LineReader::bulletMarker(trimmed);
  if (marker == 0) return std::nullopt;
  return Bullet{indentationDepth(line),
                std::string(white::trimmedOfBlanks(trimmed.substr(marker)))};
}

std::optional<Checklist> checklist(std::string_view text) {
  const std::size_t box = LineReader::checkBox(text);
  if (box == 0) return std::nullopt;
  return Checklist{text[1] != ' ', std::string(white::trimmedOfBlanks(text.substr(box)))};
}

std::optional<NumberedItem> numberedItem(std::string_view line) {
  auto item = read(line);
  if (item.reading.kind != LineReading::Kind::numbered) return std::nullopt;
  return NumberedItem{item.reading.number, item.reading.level, std::move(item.text)};
}

}  // namespace vantrell::ResponseFormatting
