// What a benchmark's own process has in memory.
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

namespace vantrell::bench {

/// A value of /proc/self/status in bytes: "VmRSS" is the memory now, "VmHWM" its peak.
inline double memory(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":")) return std::stod(line.substr(name.size() + 1)) * 1024;
  }
  std::abort();
}

}  // namespace vantrell::bench
