#ifndef KESTA_TOOLS_KST_ERRORS_H
#define KESTA_TOOLS_KST_ERRORS_H
// How the tool reports trouble. A command throws Failure for bad input or an operation that did
// not succeed (exit status 1) and UsageError for arguments that do not make sense together (exit
// status 2, like the option parser's own errors). main() prints the message on standard error,
// prefixed with "kst: ", and nothing is written after it.

#include <stdexcept>
#include <string>

#include "Text.h"

namespace kst {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& message) : std::runtime_error(message) {}
};

class UsageError : public std::runtime_error {
 public:
  explicit UsageError(const std::string& message) : std::runtime_error(message) {}
};

// Prints "kst: warning: <message>" on standard error.
void warn(const std::string& message);
// Prints "kst: <message>" on standard error unless quiet() is set.
void note(const std::string& message);
void setQuiet(bool quiet);

// The system's reason for `error` (an errno value), e.g. "No such file or directory".
std::string reason(int error);

}  // namespace kst

#endif
