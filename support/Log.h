#ifndef KESTA_SUPPORT_LOG_H
#define KESTA_SUPPORT_LOG_H
// The process log. dorp_printf writes a printf-style line to the log; LogBoth and kes_splat
// also write to standard error, because they report lost work and internal errors.
//
// By default the log goes nowhere unless the environment variable KESTA_LOG names a file or
// "stderr"; with a file, each line reaches the file before the call returns. Tests install a
// CapturingLogSink to read the exact messages:
//
//   CapturingLogSink capture;            // installs itself; the destructor restores
//   kesta db(L"bad.kst", 10, false);
//   EXPECT_EQ(capture.text(), "kesta::read_text:  Warning: ...\n");
//
// Thread safety: every function may be called from any thread; lines are not interleaved.

#include <string>

#include "support/Export.h"

KESTA_SUPPORT_API void dorp_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
KESTA_SUPPORT_API void LogBoth(const char* format, ...) __attribute__((format(printf, 1, 2)));
KESTA_SUPPORT_API void kes_splat(const char* message);

// Where log text goes. `toStderr` is true for LogBoth and kes_splat.
class KESTA_SUPPORT_API LogSink {
 public:
  virtual ~LogSink();
  virtual void write(const char* text, bool toStderr) = 0;
};

// Installs a sink (null restores the default); answers the previous one.
KESTA_SUPPORT_API LogSink* setLogSink(LogSink* sink);

// Collects everything logged while it lives; nothing reaches standard error meanwhile.
class KESTA_SUPPORT_API CapturingLogSink : public LogSink {
 public:
  CapturingLogSink();
  ~CapturingLogSink() override;
  void write(const char* text, bool toStderr) override;
  std::string text() const;
  void clear();

 private:
  struct State;
  State* state_;
  LogSink* previous_;
};

#endif
