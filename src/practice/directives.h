// What the practice agent can be told to do: lines of a prompt that begin with a directive word.
// Pure functions, any thread; a line that starts like a directive and cannot be read becomes a step
// that says what is wrong with it, so nothing is ignored silently.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vantrell::practice {

struct Directive {
  enum class Kind {
    say,
    think,
    stream,
    plan,
    ask,
    read,
    write,
    run,
    slow,
    fail,
    refuse,
    die,
    hang,
    floodOutput,
    floodError,
    halfLine,
    invalidUtf8,
    noJson,
    longLine,
    closeInput,
    unclear,
  };
  Kind kind = Kind::unclear;
  std::string text;                // text, question, path, command, or what is unclear
  std::string content;             // write: what to write
  std::vector<std::string> items;  // plan: its entries
  double seconds = 0;              // slow: between two ticks
  std::int64_t amount = 0;         // bytes, or the number of a signal (0: a plain exit)

  bool operator==(const Directive&) const = default;
};

/// The part of a prompt that a person wrote: hosts put other text around it, and mark it by a line
/// "USER REQUEST:". All of the prompt when there is no such line.
std::string_view userRequest(std::string_view prompt);

/// The directives of a prompt in their order.
std::vector<Directive> readDirectives(std::string_view prompt);

/// True when the request is the single word "help", in any case of letters.
bool asksForHelp(std::string_view prompt);

/// All directives with one line of help each, for --help and the prompt "help".
std::string directiveHelp();

}  // namespace vantrell::practice
