// What git says about a folder, for somebody who takes the work in it over. Waits for git: never on
// the main queue.
#pragma once

#include <stop_token>
#include <string>

namespace vantrell {

/// A block for each question that git had an answer to, of a long answer the beginning; empty where
/// there is no repository. A stop ends git.
std::string repositoryState(const std::string& path, std::stop_token stop = {});

}  // namespace vantrell
