// The process log: one sink for every thread, guarded by one lock, so lines never interleave.
// The default sink writes each line with one system call, so it is in the file (or on the
// terminal) when the logging call returns.

#include "support/Log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

namespace {

void write_fd(int fd, const char* text, std::size_t size) {
  while (size > 0) {
    ssize_t n = ::write(fd, text, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;  // nowhere left to report a failing log
    text += n;
    size -= static_cast<std::size_t>(n);
  }
}

// Where KESTA_LOG points, read when the log is first used.
class DefaultSink final : public LogSink {
 public:
  DefaultSink() {
    const char* where = std::getenv("KESTA_LOG");
    if (!where || !*where) return;
    if (std::strcmp(where, "stderr") == 0) {
      log_to_stderr_ = true;
    } else {
      file_ = ::open(where, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    }
  }
  void write(const char* text, bool toStderr) override {
    std::size_t size = std::strlen(text);
    if (file_ >= 0) write_fd(file_, text, size);
    if (toStderr || log_to_stderr_) write_fd(STDERR_FILENO, text, size);
  }

 private:
  int file_ = -1;
  bool log_to_stderr_ = false;
};

struct LogState {
  std::mutex mutex;
  LogSink* sink = nullptr;  // null: the default sink
};

// Never destroyed, so that objects logging during static destruction still find the log.
LogState& log_state() {
  static LogState* state = new LogState();
  return *state;
}

LogSink* default_sink() {
  static DefaultSink* sink = new DefaultSink();
  return sink;
}

void emit(const char* text, bool toStderr) {
  LogState& state = log_state();
  std::lock_guard<std::mutex> hold(state.mutex);
  (state.sink ? state.sink : default_sink())->write(text, toStderr);
}

void emit_formatted(bool toStderr, const char* format, va_list args) {
  char line[1024];
  va_list again;
  va_copy(again, args);
  int length = std::vsnprintf(line, sizeof line, format, args);
  if (length >= 0 && static_cast<std::size_t>(length) < sizeof line) {
    emit(line, toStderr);
  } else if (length >= 0) {
    // Logging never throws: without memory for the whole line, the cut line goes out.
    std::unique_ptr<char[]> whole(new (std::nothrow) char[static_cast<std::size_t>(length) + 1]);
    if (whole) std::vsnprintf(whole.get(), static_cast<std::size_t>(length) + 1, format, again);
    emit(whole ? whole.get() : line, toStderr);
  }
  va_end(again);
}

}  // namespace

void dorp_printf(const char* format, ...) {
  if (!format) return;
  va_list args;
  va_start(args, format);
  emit_formatted(false, format, args);
  va_end(args);
}

void LogBoth(const char* format, ...) {
  if (!format) return;
  va_list args;
  va_start(args, format);
  emit_formatted(true, format, args);
  va_end(args);
}

void kes_splat(const char* message) {
  if (message) emit(message, true);
}

LogSink::~LogSink() = default;

LogSink* setLogSink(LogSink* sink) {
  LogState& state = log_state();
  std::lock_guard<std::mutex> hold(state.mutex);
  LogSink* previous = state.sink ? state.sink : default_sink();
  state.sink = sink;
  return previous;
}

struct CapturingLogSink::State {
  mutable std::mutex mutex;
  std::string text;
};

CapturingLogSink::CapturingLogSink() : state_(new State()), previous_(setLogSink(this)) {}

CapturingLogSink::~CapturingLogSink() {
  setLogSink(previous_);
  delete state_;
}

void CapturingLogSink::write(const char* text, bool) {
  std::lock_guard<std::mutex> hold(state_->mutex);
  state_->text += text;
}

std::string CapturingLogSink::text() const {
  std::lock_guard<std::mutex> hold(state_->mutex);
  return state_->text;
}

void CapturingLogSink::clear() {
  std::lock_guard<std::mutex> hold(state_->mutex);
  state_->text.clear();
}
