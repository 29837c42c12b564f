#include "shell/terminal/nearest_word.h"

#include <vector>

namespace vantrell::shell {

namespace {

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

std::optional<std::string_view> nearestWord(std::string_view word,
                                            std::span<const std::string_view> known) {
  std::optional<std::string_view> nearest;
  std::size_t least = 0;
  for (const auto candidate : known) {
    const std::size_t edits = distance(word, candidate);
    if (edits * 3 > candidate.size() || (nearest && edits >= least)) continue;
    nearest = candidate;
    least = edits;
  }
  return nearest;
}

}  // namespace vantrell::shell
