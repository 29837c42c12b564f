// What a process has in memory, a benchmark's own or another one.
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

namespace vantrell::bench {

/// A value of /proc/self/status in bytes: "VmRSS" is the memory now, "VmHWM" its peak.
inline double memory(const std::string& name, int process = 0) {
  const std::string who = process == 0 ? "self" : std::to_string(process);
  std::ifstream status("/proc/" + who + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":")) return std::stod(line.substr(name.size() + 1)) * 1024;
  }
  std::abort();
}

}  // namespace vantrell::bench
