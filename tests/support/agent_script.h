// Scripts for the scripted agent, one command a line; what the dialects add is how they say things.
#pragma once

#include <filesystem>
#include <string>

namespace vantrell::tests {

class AgentScriptText {
 public:
  AgentScriptText() = default;
  explicit AgentScriptText(std::string text) : text_(std::move(text)) {}
  const std::string& text() const { return text_; }
  /// What the program follows: behind the script it waits until its input ends.
  std::string withWaitAtTheEnd() const { return text_ + "hang\n"; }

  /// The program that follows it, which lies beside this one.
  static std::string program() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "scripted_agent";
  }

 protected:
  std::string text_;
};

template <typename Dialect>
class AgentScript : public AgentScriptText {
 public:
  Dialect& line(const std::string& command) {
    text_ += command + "\n";
    return static_cast<Dialect&>(*this);
  }
  Dialect& send(const std::string& message) { return line("send " + message); }
  Dialect& expect(const std::string& part) { return line("expect " + part); }
  Dialect& expectLine(const std::string& whole) { return line("expect-line " + whole); }
  Dialect& hang() { return line("hang"); }
};

}  // namespace vantrell::tests
