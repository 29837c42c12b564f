// The text of an answer as blocks. Agents write Markdown loosely; these are the rules by which its
// lines are taken, and by which a wall of prose is first broken up. Pure functions in linear time,
// any thread. Bytes that are no UTF-8 pass through.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "presentation/response_block.h"

namespace vantrell::ResponseFormatting {

/// The blocks of an answer; for one that still grows see IncrementalBlocks.
std::vector<ResponseBlock> blocks(std::string_view text);

/// The text with line feeds and without white space at its ends; long prose without structure gets
/// a blank line between its paragraphs.
std::string structureDenseResponse(std::string_view text);

// The line tests.

/// Two or more cells, or none.
std::optional<std::vector<std::string>> tableCells(std::string_view line);

struct Heading {
  int level;
  std::string text;
  bool operator==(const Heading&) const = default;
};
/// Of a line without white space at its ends.
std::optional<Heading> heading(std::string_view trimmedLine);

/// 0 to 6: a blank counts 1, a tab 4, two are one step.
int indentationDepth(std::string_view line);

struct Bullet {
  int depth;
  std::string text;
  bool operator==(const Bullet&) const = default;
};
std::optional<Bullet> bullet(std::string_view line);

struct Checklist {
  bool checked;
  std::string text;
  bool operator==(const Checklist&) const = default;
};
/// Of the text of a bullet.
std::optional<Checklist> checklist(std::string_view text);

struct NumberedItem {
  std::int64_t number;
  int depth;
  std::string text;
  bool operator==(const NumberedItem&) const = default;
};
std::optional<NumberedItem> numberedItem(std::string_view line);

}  // namespace vantrell::ResponseFormatting
