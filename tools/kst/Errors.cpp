#include "Errors.h"

#include <cstring>
#include <iostream>

namespace kst {
namespace {

bool quiet_ = false;

}  // namespace

void warn(const std::string& message) { std::cerr << "kst: warning: " << message << '\n'; }

void note(const std::string& message) {
  if (!quiet_) std::cerr << "kst: " << message << '\n';
}

void setQuiet(bool quiet) { quiet_ = quiet; }

std::string reason(int error) { return std::strerror(error); }

}  // namespace kst
