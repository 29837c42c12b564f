// A library that is loaded by its first use and not linked, since loading it costs every start of
// the program time and few starts need it. Derive from it and name the functions that are called:
//
//   struct Library : DynamicLibrary {
//     Library() : DynamicLibrary("libz.so.1") {}
//     VANTRELL_FUNCTION(crc32)
//   };
//
// Any thread. A library that is not there, is broken or lacks a function has a problem, and then
// nothing of it may be called.
#pragma once

#include <string>

namespace vantrell {

class DynamicLibrary {
 public:
  /// Looks where the dynamic linker looks. What is loaded stays loaded: its threads, types and exit
  /// handlers may outlive the object.
  explicit DynamicLibrary(const std::string& name);

  /// What the dynamic linker says; empty when everything was found.
  const std::string& problem() const { return problem_; }
  bool isComplete() const { return problem_.empty(); }

 protected:
  template <typename Function>
  Function find(const char* symbol) {
    return reinterpret_cast<Function>(address(symbol));
  }

 private:
  void* address(const char* symbol);

  void* handle_;
  std::string problem_;  // the first
};

}  // namespace vantrell

/// A member that is called as the function of that name, which the library's header declares.
#define VANTRELL_FUNCTION(name) decltype(&::name) name = find<decltype(&::name)>(#name);
