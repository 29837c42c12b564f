// An agent without a mind, for tests of the clients that talk to one over pipes: it follows the
// script whose path is its only argument, one line of the script after the other, and waits only
// for its input. A script that has come to its end exits with 0.
//
//   expect TEXT        reads a line, which must contain TEXT
//   expect-line TEXT   reads a line, which must be TEXT
//   expect-end         the input must have ended
//   send TEXT          writes TEXT and a line feed
//   raw TEXT           writes TEXT alone; \n, \\ and \xHH stand for bytes
//   bytes N            writes N bytes 'x'
//   error TEXT         writes TEXT to standard error, with the escapes of raw
//   error-bytes N      writes N bytes 'e' to standard error
//   close-input        closes standard input
//   close-output       closes standard output
//   hang               reads until the input ends, then goes on
//   exit N             exits with the status N
//   signal N           kills itself with the signal N
//
// In TEXT, ${id} is the number "id", and ${terminalId}, ${request_id} and ${session_id} are the
// texts of these names, of the last line read that had one, ${pid} the process id, ${folder} the
// working folder. Empty lines and those that begin with # are skipped. A line that was not expected
// ends the agent with status 97 and a word on standard error.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

std::map<std::string, std::string> variables;

[[noreturn]] void fail(const std::string& command, const std::string& what) {
  std::cerr << "scripted agent: " << command << ": " << what << std::endl;
  _exit(97);
}

void writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(descriptor, bytes.data(), bytes.size());
    if (count <= 0) _exit(98);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

/// The text behind `"key":`, up to the end of a number or of a text without escapes.
void capture(const std::string& line, const std::string& key) {
  const auto at = line.find("\"" + key + "\":");
  if (at == std::string::npos) return;
  auto from = at + key.size() + 3;
  const bool isText = line[from] == '"';
  if (isText) ++from;
  variables[key] = line.substr(from, line.find_first_of(isText ? "\"" : ",}", from) - from);
}

std::string nextLine(const std::string& command) {
  std::string line;
  if (!std::getline(std::cin, line)) fail(command, "the input has ended");
  capture(line, "id");
  capture(line, "terminalId");
  capture(line, "request_id");
  capture(line, "session_id");
  return line;
}

std::string expanded(std::string text) {
  for (const auto& [name, value] : variables) {
    const std::string reference = "${" + name + "}";
    for (auto at = text.find(reference); at != std::string::npos; at = text.find(reference, at)) {
      text.replace(at, reference.size(), value);
      at += value.size();
    }
  }
  return text;
}

std::string unescaped(const std::string& text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      bytes += text[i];
    } else if (const char kind = text[++i]; kind == 'n') {
      bytes += '\n';
    } else if (kind == 'x' && i + 2 < text.size()) {
      bytes += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      bytes += kind;
    }
  }
  return bytes;
}

void writeMany(int descriptor, char byte, std::size_t count) {
  const std::string piece(std::min<std::size_t>(count, 1 << 16), byte);
  for (; count > 0; count -= std::min(count, piece.size())) {
    writeAll(descriptor, std::string_view(piece).substr(0, count));
  }
}

void follow(const std::string& command, const std::string& rest) {
  const std::string text = expanded(rest);
  if (command == "expect") {
    const std::string line = nextLine(command);
    if (!line.contains(text)) fail(command, text + " is not in " + line);
  } else if (command == "expect-line") {
    const std::string line = nextLine(command);
    if (line != text) fail(command, text + " is not " + line);
  } else if (command == "expect-end") {
    std::string line;
    if (std::getline(std::cin, line)) fail(command, "there is " + line);
  } else if (command == "send") {
    writeAll(1, text + "\n");
  } else if (command == "raw") {
    writeAll(1, unescaped(text));
  } else if (command == "bytes") {
    writeMany(1, 'x', std::stoull(text));
  } else if (command == "error") {
    writeAll(2, unescaped(text));
  } else if (command == "error-bytes") {
    writeMany(2, 'e', std::stoull(text));
  } else if (command == "close-input") {
    close(0);
  } else if (command == "close-output") {
    close(1);
  } else if (command == "hang") {
    for (std::string line; std::getline(std::cin, line);) {
    }
  } else if (command == "exit") {
    _exit(std::stoi(text));
  } else if (command == "signal") {
    raise(std::stoi(text));
  } else {
    fail(command, "there is no such command");
  }
}

}  // namespace

int main(int count, char** arguments) {
  std::ifstream script(count == 2 ? arguments[1] : "");
  if (!script) {
    std::cerr << "usage: scripted_agent SCRIPT" << std::endl;
    return 2;
  }
  std::signal(SIGPIPE, SIG_IGN);
  variables["pid"] = std::to_string(getpid());
  char* const folder = getcwd(nullptr, 0);
  variables["folder"] = folder ? folder : "";
  std::free(folder);
  for (std::string line; std::getline(script, line);) {
    if (line.empty() || line.starts_with('#')) continue;
    const auto space = line.find(' ');
    follow(line.substr(0, space), space == std::string::npos ? "" : line.substr(space + 1));
  }
  return 0;
}
