// Marks of Markdown within one line of an agent, which a front end shows as looks instead: **bold**
// and `code`. In doubt they are left alone: a power, a glob and a mark without a partner stay as
// they were written, and so do *these* and _these_, which names and globs have as well. Pure, any
// thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vantrell {

/// A text without its marks.
struct InlineText {
  enum Look : char { bold = 1, code = 2 };
  std::string text;
  std::string looks;  // of each byte of the text; those that are missing are plain
};

InlineText withoutMarks(std::string_view source);

}  // namespace vantrell
