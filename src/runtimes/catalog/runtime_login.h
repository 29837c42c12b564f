// How the user signs in to each runtime. Three open a browser by themselves; two ask questions and
// want a terminal. Pure functions, any thread.
#pragma once

#include <string>
#include <string_view>

#include "runtimes/catalog/provider_table.h"

namespace vantrell {

/// Null for a provider without a sign-in of its own.
const RuntimeLoginFlow* loginFlow(AgentProvider provider);

/// Quoted for a shell, whatever the text holds.
std::string shellQuoted(std::string_view text);

/// The flow's command line for a shell.
std::string loginCommandLine(const RuntimeLoginFlow& flow, std::string_view executable);

}  // namespace vantrell
