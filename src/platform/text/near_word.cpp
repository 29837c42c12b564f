#include "platform/text/near_word.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace vantrell::text {

namespace {

/// The edits that turn one word into the other.
std::size_t distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  for (std::size_t j = 0; j <= to.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string_view nearWord(std::string_view word, std::span<const std::string_view> known) {
  std::string_view nearest;
  std::size_t fewest = 0;
  for (const auto candidate : known) {
    const std::size_t edits = distance(word, candidate);
    if (edits * 3 > candidate.size() || (!nearest.empty() && edits >= fewest)) continue;
    nearest = candidate;
    fewest = edits;
  }
  return nearest;
}

}  // namespace vantrell::text
