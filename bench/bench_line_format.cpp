// Throughput of the record line: reading and writing a typical 16-column log line, in bytes
// of line text per second.

#include <benchmark/benchmark.h>

#include <string>
#include <string_view>

#include "record/dbrecord.h"
#include "support/TextFile.h"

namespace {

// Cookie, Name, Reel, Scene, Shot, Start time, End time, Duration, snd reel, snd start,
// snd end, start keycode, end keycode, Who, Description, Notes.
constexpr std::string_view kLogLine = R"("4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f","A001_C003_0612XY","A001","12","3",)"
                                      R"("01:00:10:00","01:00:25:12","00:00:15:12","S001","01:00:10:00","01:00:25:12",)"
                                      R"("KJ 12 3456 7890+12","KJ 12 3456 7914+03","Ann","Wide shot, slow push in",)"
                                      R"("Good take, ""hero"" performance; boom in frame at the end")";
// The same line with nothing to unescape: a record keeps such a line as it is.
constexpr std::string_view kPlainLogLine =
    R"("4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f","A001_C003_0612XY","A001","12","3",)"
    R"("01:00:10:00","01:00:25:12","00:00:15:12","S001","01:00:10:00","01:00:25:12",)"
    R"("KJ 12 3456 7890+12","KJ 12 3456 7914+03","Ann","Wide shot, slow push in",)"
    R"("Good take, hero performance; boom in frame at the end")";
constexpr unsigned short kColumns = 16;

// Argument 0: the line with escapes; 1: the plain one.
std::string_view line_for(const benchmark::State& state) { return state.range(0) ? kPlainLogLine : kLogLine; }
constexpr unsigned kLines = 1024;

void BM_ReadLogLine(benchmark::State& state) {
  TextFile file;
  const std::string_view line = line_for(state);
  for (unsigned i = 0; i < kLines; ++i) file.appendLine(line);
  Zr::Ptr<dbrecord> record(new dbrecord(kColumns));
  for (auto _ : state) {
    if (file.readCursor() == kLines) file.setReadCursor(0);
    int count = record->read(file);
    benchmark::DoNotOptimize(count);
    if (count != kColumns) state.SkipWithError("the line did not read as 16 fields");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(line.size()));
}
BENCHMARK(BM_ReadLogLine)->Arg(0)->Arg(1);

// What loading does: every line goes into a new record, which later dies with its fields.
void BM_ReadLogLineIntoNewRecord(benchmark::State& state) {
  TextFile file;
  const std::string_view line = line_for(state);
  for (unsigned i = 0; i < kLines; ++i) file.appendLine(line);
  for (auto _ : state) {
    if (file.readCursor() == kLines) file.setReadCursor(0);
    Zr::Ptr<dbrecord> record(new dbrecord(kColumns));
    int count = record->read(file);
    benchmark::DoNotOptimize(count);
    if (count != kColumns) state.SkipWithError("the line did not read as 16 fields");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(line.size()));
}
BENCHMARK(BM_ReadLogLineIntoNewRecord)->Arg(0)->Arg(1);

void BM_WriteLogLine(benchmark::State& state) {
  TextFile source;
  source.appendLine(kLogLine);
  Zr::Ptr<dbrecord> record(new dbrecord(kColumns));
  if (record->read(source) != kColumns) state.SkipWithError("the line did not read as 16 fields");
  TextFile file;
  unsigned written = 0;
  for (auto _ : state) {
    if (written++ == kLines) {
      file.clear();
      written = 1;
    }
    benchmark::DoNotOptimize(record->write(file));
  }
  if (file.getNumLines() && file.line(0) != kLogLine) state.SkipWithError("the written line differs");
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kLogLine.size()));
}
BENCHMARK(BM_WriteLogLine);

}  // namespace
