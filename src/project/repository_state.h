// What git says about a folder, for somebody who takes the work in it over. Waits for git: never on
// the main queue.
#pragma once

#include <string>

namespace vantrell {

/// A block for each question that git had an answer to; empty where there is no repository.
std::string repositoryState(const std::string& path);

}  // namespace vantrell
