// What happened to a transcript since it was last stored, so that a save writes that and nothing
// else. Bookkeeping beside the value: a copy is another transcript and begins a journal of its own,
// a moved one takes its journal along.
#pragma once

#include <atomic>
#include <cstdint>
#include <set>
#include <utility>

namespace vantrell {

class TranscriptJournal {
 public:
  struct Changes {
    std::set<std::size_t> places;  // entries changed in place, below `unchangedLength`
    /// Behind it everything is new, or gone.
    std::size_t unchangedLength = 0;
  };

  TranscriptJournal() : lineage_(nextLineage()) {}
  TranscriptJournal(const TranscriptJournal&) : TranscriptJournal() {}
  TranscriptJournal(TranscriptJournal&& other) noexcept
      : lineage_(std::exchange(other.lineage_, nextLineage())),
        changes_(std::exchange(other.changes_, {})) {}
  TranscriptJournal& operator=(const TranscriptJournal&) {
    lineage_ = nextLineage();
    changes_ = {};
    return *this;
  }
  TranscriptJournal& operator=(TranscriptJournal&& other) noexcept {
    if (this == &other) return *this;
    lineage_ = std::exchange(other.lineage_, nextLineage());
    changes_ = std::exchange(other.changes_, {});
    return *this;
  }

  /// The same number means the same transcript, at another time.
  std::uint64_t lineage() const { return lineage_; }

  void changed(std::size_t place) {
    if (place < changes_.unchangedLength) changes_.places.insert(place);
  }
  void shortenedTo(std::size_t length) {
    if (length >= changes_.unchangedLength) return;
    changes_.unchangedLength = length;
    changes_.places.erase(changes_.places.lower_bound(length), changes_.places.end());
  }
  /// What happened since the last call; from now on a transcript of this length is the stored one.
  Changes take(std::size_t length) {
    return std::exchange(changes_, {.places = {}, .unchangedLength = length});
  }

 private:
  static std::uint64_t nextLineage() {
    static std::atomic<std::uint64_t> last = 0;
    return ++last;
  }

  std::uint64_t lineage_;
  Changes changes_;
};

}  // namespace vantrell
