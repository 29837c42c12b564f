#include "records/stores/save_batch.h"

#include <algorithm>

namespace vantrell {

namespace {

void eraseFrom(SaveBatch::Rows& rows, std::int64_t thread, std::size_t place) {
  rows.erase(rows.lower_bound(rowKey(thread, place)), rows.lower_bound(rowKey(thread + 1, 0)));
}

/// Shortens what is kept, then lays the later rows over it.
void addRows(SaveBatch::Rows& rows, SaveBatch::Lengths& lengths, SaveBatch::Rows later,
             const SaveBatch::Lengths& laterLengths) {
  for (const auto& [thread, length] : laterLengths) {
    eraseFrom(rows, thread, length);
    const auto [place, isNew] = lengths.try_emplace(thread, length);
    if (!isNew) place->second = std::min(place->second, length);
  }
  for (auto& [key, bytes] : later) rows.insert_or_assign(key, std::move(bytes));
}

}  // namespace

bool SaveBatch::empty() const {
  return rowCount() == 0 && runLengths.empty() && entryLengths.empty();
}

std::size_t SaveBatch::rowCount() const {
  return workspaces.size() + threads.size() + heads.size() + runs.size() + entries.size() +
         notes.size();
}

void SaveBatch::add(SaveBatch later) {
  for (auto& [number, row] : later.threads) {
    if (row) continue;
    heads.erase(number);
    eraseFrom(runs, number, 0);
    eraseFrom(entries, number, 0);
    runLengths.erase(number);
    entryLengths.erase(number);
  }
  for (auto& [number, row] : later.workspaces) workspaces.insert_or_assign(number, std::move(row));
  for (auto& [number, row] : later.threads) threads.insert_or_assign(number, row);
  for (auto& [number, head] : later.heads) heads.insert_or_assign(number, std::move(head));
  addRows(runs, runLengths, std::move(later.runs), later.runLengths);
  addRows(entries, entryLengths, std::move(later.entries), later.entryLengths);
  for (auto& [name, text] : later.notes) notes.insert_or_assign(name, std::move(text));
}

}  // namespace vantrell
