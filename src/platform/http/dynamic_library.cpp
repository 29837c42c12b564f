#include "platform/http/dynamic_library.h"

#include <dlfcn.h>

namespace vantrell {

namespace {

std::string lastProblem() {
  const char* words = ::dlerror();
  return words ? words : "no reason given";
}

}  // namespace

DynamicLibrary::DynamicLibrary(const std::string& name)
    : handle_(::dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (!handle_) problem_ = lastProblem();
}

void* DynamicLibrary::address(const char* symbol) {
  if (!handle_) return nullptr;
  void* const found = ::dlsym(handle_, symbol);
  if (!found && problem_.empty()) problem_ = lastProblem();
  return found;
}

}  // namespace vantrell
