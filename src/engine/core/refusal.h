// Why an operation was not carried out: its result for the caller, who shows it where the user is.
#pragma once

#include <expected>
#include <string>

namespace vantrell {

struct Refusal {
  std::string sentence;  // for the user: what happened and what to do
  bool operator==(const Refusal&) const = default;
};

template <typename T = void>
using Result = std::expected<T, Refusal>;

inline std::unexpected<Refusal> refuse(std::string sentence) {
  return std::unexpected(Refusal{std::move(sentence)});
}

/// For operations on something that has gone: deleted meanwhile, or by another front end.
inline std::unexpected<Refusal> refuseMissingConversation() {
  return refuse("That conversation is no longer available.");
}

}  // namespace vantrell
