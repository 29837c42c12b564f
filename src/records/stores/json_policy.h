// What differs between the stores and wires that carry the same records.
#pragma once

#include <string>

namespace vantrell {

struct JsonPolicy {
  enum class DateForm {
    secondsSinceReference,  // a number since 2001-01-01 UTC: the conversation document
    iso8601,                // a text: the orchestration files
    secondsSinceUnixEpoch,  // a number: the remote wire
  };
  DateForm dates = DateForm::secondsSinceReference;
};

inline constexpr JsonPolicy conversationJson{JsonPolicy::DateForm::secondsSinceReference};

inline constexpr JsonPolicy orchestrationJson{JsonPolicy::DateForm::iso8601};

/// Why a document could not be read: the way to the value and what is wrong with it.
struct DecodeError {
  std::string path;     // "0.threads.3.title"
  std::string message;  // "missing"

  std::string text() const { return path.empty() ? message : path + ": " + message; }
};

}  // namespace vantrell
