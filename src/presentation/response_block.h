// What an answer is made of, for an interface that lays it out without a Markdown engine. Plain
// values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/values/uuid.h"

namespace vantrell {

/// Every row has as many cells as `headers`.
struct ResponseTable {
  std::vector<std::string> headers;
  std::vector<std::vector<std::string>> rows;

  bool operator==(const ResponseTable&) const = default;
};

/// One block. Depths are 0 to 6 and count two columns each.
struct ResponseBlock {
  struct Heading {
    int level = 1;  // 1 to 6
    bool operator==(const Heading&) const = default;
  };
  struct Bullet {
    int depth = 0;
    bool operator==(const Bullet&) const = default;
  };
  struct Numbered {
    std::int64_t number = 0;
    int depth = 0;
    bool operator==(const Numbered&) const = default;
  };
  struct Checklist {
    bool checked = false;
    int depth = 0;
    bool operator==(const Checklist&) const = default;
  };
  struct Code {
    std::optional<std::string> language;
    bool operator==(const Code&) const = default;
  };
  struct Paragraph {
    bool operator==(const Paragraph&) const = default;
  };
  struct Quote {
    bool operator==(const Quote&) const = default;
  };
  struct Divider {
    bool operator==(const Divider&) const = default;
  };
  using Kind = std::variant<Heading, Bullet, Numbered, Checklist, Code, ResponseTable, Paragraph,
                            Quote, Divider>;

  Uuid id;  // fresh for each block
  Kind kind = Paragraph{};
  std::string text;  // empty for tables and dividers

  /// The same to a reader: everything but the id.
  bool looksLike(const ResponseBlock& other) const {
    return kind == other.kind && text == other.text;
  }
};

}  // namespace vantrell
