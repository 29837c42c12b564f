// How the user signs in to each runtime: the program's own flow, which is the vendor's business.
// Three open a browser by themselves; two ask questions and want a terminal. Pure functions, any
// thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "records/values/agent_provider.h"

namespace vantrell {

struct RuntimeLoginFlow {
  AgentProvider provider;
  std::vector<std::string> arguments;
  bool wantsTerminal = false;
  /// What is said when it fails.
  std::string_view failure;
  /// What the program itself said is said in its place.
  bool saysWhy = false;
};

/// Null for a provider without a sign-in of its own.
const RuntimeLoginFlow* loginFlow(AgentProvider provider);

/// Quoted for a shell, whatever the text holds.
std::string shellQuoted(std::string_view text);

/// The flow's command line for a shell.
std::string loginCommandLine(const RuntimeLoginFlow& flow, std::string_view executable);

}  // namespace vantrell
