// Counts the user-perceived characters of a text that grows. Without a queue: one thread at a time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vantrell {

class CharacterCounter {
 public:
  /// Counts on. A code point is never cut between two calls; a user-perceived character may be.
  void add(std::string_view text);
  std::size_t count() const { return closed_ + !last_.empty(); }

 private:
  std::size_t closed_ = 0;  // characters that nothing which follows can change
  std::string last_;        // enough of the last one to see whether it goes on
};

}  // namespace vantrell
