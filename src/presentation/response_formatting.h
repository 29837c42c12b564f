// The text of an answer as blocks. Agents write Markdown loosely; these are the rules by which its
// lines are read, and by which long prose without structure is first broken up. Pure functions in
// linear time, any thread. Bytes that are not UTF-8 pass through.
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

// What a text that grows needs.

/// "\r\n" and "\r" become "\n".
std::string withLineFeeds(std::string_view text);
/// Whether the text has blank lines, four lines, or Markdown at the beginning of a line, and so is
/// not broken up. It has line feeds only and no white space at its ends. More text never takes the
/// structure away.
bool hasStructure(std::string_view text);

/// A place between two blocks.
struct Place {
  std::size_t bytes = 0;
  std::size_t blocks = 0;
};
/// Adds the blocks of these lines, without ids; prose is not broken up. The text has line feeds
/// only and no white space at its end. What stands before the returned place cannot change when
/// more text follows, and a parse of that longer text may begin there.
Place appendBlocks(std::string_view text, std::vector<ResponseBlock>& blocks);

// The line tests.

/// Two or more cells, else nullopt.
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
