#include "runtimes/catalog/runtime_login.h"

namespace vantrell {

const RuntimeLoginFlow* loginFlow(AgentProvider provider) {
  const auto& program = providerFacts(provider).program;
  return program ? &program->login : nullptr;
}

std::string shellQuoted(std::string_view text) {
  std::string quoted = "'";
  for (const char each : text) {
    if (each == '\'') {
      quoted += R"('\'')";
    } else {
      quoted += each;
    }
  }
  return quoted + "'";
}

std::string loginCommandLine(const RuntimeLoginFlow& flow, std::string_view executable) {
  std::string command = shellQuoted(executable);
  // The arguments are plain words.
  for (const auto& argument : flow.arguments) command += " " + argument;
  return command;
}

}  // namespace vantrell
