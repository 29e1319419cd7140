// Helpers of the reliability tests.

#include "ReliabilityUtil.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <climits>
#include <sstream>

#include "common/TestUtil.h"
#include "record/KestaDebugPrivate.h"
#include "support/Log.h"

namespace reliability {

filemodel::Content contentOf(const kesta& db) {
  filemodel::Content c;
  c.valid = db.get_valid() != 0;
  c.revision = db.get_revision();
  for (const Zr::AttribValuePair& pair : db.params()) {
    c.params.emplace_back(std::string(pair.name().view()), std::string(pair.value().view()));
  }
  for (const DBFieldDesc& desc : db.fields()) {
    c.columns.push_back(filemodel::Column{std::string(desc.name.view()), static_cast<int>(desc.type)});
  }
  c.records.reserve(db.get_num_records());
  for (unsigned row = 0; row < db.get_num_records(); ++row) {
    Zr::Ptr<dbrecord> record = db.get_record(row);
    if (!record) continue;  // the writer skips rows without a record
    std::vector<std::string> fields;
    fields.reserve(record->get_num_fields());
    for (unsigned short f = 0; f < record->get_num_fields(); ++f) fields.emplace_back(record->getField(f).view());
    c.records.push_back(std::move(fields));
  }
  return c;
}

Marks marksOf(const kesta& db) {
  Marks m;
  m.database_changed = db.changed();
  for (unsigned row = 0; row < db.get_num_records(); ++row) {
    Zr::Ptr<dbrecord> record = db.get_record(row);
    m.records.push_back(record.get());
    m.changed.push_back(record && record->changed());
    m.tags.push_back(record ? record->get_tag() : -1);
  }
  return m;
}

CountingAllocator::CountingAllocator() : previous_(setAllocator(this)) {}

CountingAllocator::~CountingAllocator() { setAllocator(previous_); }

void* CountingAllocator::allocate(std::size_t size) {
  if (fail_in_ > 0 && --fail_in_ == 0) {
    if (fail_on_) fail_in_ = 1;
    ++failures_;
    throw Zr::Exception::BadAlloc();
  }
  void* block = defaultAllocator()->allocate(size);
  ++live_;
  return block;
}

void CountingAllocator::release(void* block) noexcept {
  if (!block) return;
  --live_;
  defaultAllocator()->release(block);
}

std::string unexpectedLogLines(const std::string& log) {
  static const char* const kKnown[] = {
      "kesta::add_text: returning because not all fields filled",
      "kesta::add_text: returning because no more lines",
      "kesta::read_text:  Warning: kesta is revision ",
  };
  std::istringstream lines(log);
  std::string line;
  std::string unexpected;
  while (std::getline(lines, line)) {
    bool known = false;
    for (const char* k : kKnown) known = known || line.rfind(k, 0) == 0;
    if (!known) unexpected += line + "\n";
  }
  return unexpected;
}

std::string readWithInstalledFileSystem(const std::string& path) {
  iFileSystem* fs = OS()->fileSystem();
  const int fd = fs->open(path.c_str(), O_RDONLY, 0);
  if (fd < 0) return {};
  uint64_t size = 0;
  std::string bytes;
  if (fs->fileSize(fd, size) == 0) {
    bytes.resize(size);
    uint64_t got = 0;
    while (got < size) {
      const ssize_t n = fs->read(fd, bytes.data() + got, size - got);
      if (n <= 0) break;
      got += static_cast<uint64_t>(n);
    }
    bytes.resize(got);
  }
  fs->close(fd);
  return bytes;
}

namespace {

std::size_t first_difference(const std::string& a, const std::string& b) {
  std::size_t i = 0;
  while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
  return i;
}

}  // namespace

bool roundTrip(kesta& db, const std::string& fileName, const std::string& label) {
  SCOPED_TRACE(label);
  std::string why;
  db.set_filename(testutil::wide(fileName));
  const filemodel::Content before = contentOf(db);
  const std::size_t records = before.records.size();
  int answer = 0;
  {
    CapturingLogSink quiet;
    answer = db.save_text();
  }
  EXPECT_EQ(answer, static_cast<int>(records));
  const filemodel::Content saved = contentOf(db);
  const std::string bytes = readWithInstalledFileSystem(fileName);
  const std::string expected_bytes = filemodel::write(saved, before);
  EXPECT_TRUE(bytes == expected_bytes) << "saved " << bytes.size() << " bytes, expected " << expected_bytes.size()
                                       << ", first difference at " << first_difference(bytes, expected_bytes);

  CapturingLogSink log;
  Zr::Ptr<kesta> again(new kesta(testutil::wide(fileName), INT_MAX, false));
  const filemodel::Loaded expected = filemodel::load(bytes);
  const filemodel::Content reloaded = contentOf(*again);
  EXPECT_EQ(filemodel::difference(expected.content, reloaded), "");
  EXPECT_EQ(log.text(), expected.log);
  EXPECT_TRUE(KestaDebug::check(*again, &why)) << why;
  EXPECT_TRUE(KestaDebug::check(db, &why)) << why;

  if (!reloaded.valid || reloaded.columns != saved.columns) return false;
  if (reloaded.records.size() != saved.records.size()) return false;
  for (std::size_t r = 0; r < saved.records.size(); ++r) {
    if (reloaded.records[r].size() != saved.records[r].size()) return false;
    for (std::size_t f = 0; f < saved.records[r].size(); ++f) {
      if (reloaded.records[r][f] != filemodel::rewritten(saved.records[r][f])) return false;
    }
  }
  return true;
}

}  // namespace reliability
