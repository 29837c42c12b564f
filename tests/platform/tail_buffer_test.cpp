#include "platform/text/tail_buffer.h"

#include <gtest/gtest.h>
#include <random>

namespace vantrell {
namespace {

/// What the buffer must equal, at the cost that it must not have.
struct NaiveTail {
  std::size_t limit;
  std::string kept;
  bool wasTruncated = false;

  void append(std::string_view bytes) {
    kept += bytes;
    if (kept.size() <= limit) return;
    wasTruncated = true;
    kept.erase(0, kept.size() - limit);
  }
  std::string contents() const {
    std::size_t cut = 0;
    while (wasTruncated && cut < 3 && cut < kept.size() &&
           (static_cast<unsigned char>(kept[cut]) & 0xC0) == 0x80) {
      ++cut;
    }
    return kept.substr(cut);
  }
};

TEST(TailBuffer, KeepsWhatANaiveOneKeeps) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    std::mt19937 random(seed);
    const auto below = [&random](std::size_t end) {
      return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
    };
    const std::size_t limit = below(40);
    TailBuffer buffer(limit);
    NaiveTail model{limit, {}};
    for (int step = 0; step < 60; ++step) {
      std::string bytes;
      const std::size_t size = below(3) == 0 ? below(100) : below(10);
      for (std::size_t i = 0; i < size; ++i) bytes += "ab\xE2\x82\xAC\n"[below(6)];
      buffer.append(bytes);
      model.append(bytes);
      ASSERT_EQ(buffer.contents(), model.contents()) << "seed " << seed << " step " << step;
      ASSERT_EQ(buffer.wasTruncated(), model.wasTruncated) << "seed " << seed << " step " << step;
      ASSERT_EQ(buffer.size(), model.kept.size());
    }
  }
}

}  // namespace
}  // namespace vantrell
