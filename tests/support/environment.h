// Sets or unsets environment variables for one test and puts the old values back.
#pragma once

#include <map>
#include <optional>
#include <stdlib.h>
#include <string>

namespace vantrell::tests {

class Environment {
 public:
  Environment() = default;
  ~Environment() {
    for (const auto& [name, value] : old_) apply(name, value);
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  void set(const std::string& name, const std::optional<std::string>& value) {
    const char* present = getenv(name.c_str());
    old_.try_emplace(name, present ? std::optional<std::string>(present) : std::nullopt);
    apply(name, value);
  }

 private:
  static void apply(const std::string& name, const std::optional<std::string>& value) {
    value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
  }
  std::map<std::string, std::optional<std::string>> old_;
};

}  // namespace vantrell::tests
