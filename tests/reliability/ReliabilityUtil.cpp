// Helpers of the reliability tests.

#include "ReliabilityUtil.h"

#include <gtest/gtest.h>

#include <climits>

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
  for (unsigned row = 0; row < db.get_num_records(); ++row) {
    Zr::Ptr<dbrecord> record = db.get_record(row);
    if (!record) continue;  // the writer skips rows without a record
    std::vector<std::string> fields;
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

const std::string& dailies() {
  static const std::string bytes = testutil::readFile(testutil::example("dailies.kst"));
  return bytes;
}

std::size_t pastLines(int lines) {
  std::size_t end = 0;
  for (int line = 0; line < lines; ++line) end = dailies().find('\n', end) + 1;
  return end;
}

bool roundTrip(kesta& db, SimFileSystem& disk, const std::string& label) {
  SCOPED_TRACE(label);
  UseFileSystem use(&disk);
  db.set_filename(testutil::wide("/saved.kst"));
  const filemodel::Content before = contentOf(db);
  {
    CapturingLogSink quiet;
    EXPECT_EQ(db.save_text(), static_cast<int>(before.records.size()));
  }
  const filemodel::Content saved = contentOf(db);
  const std::string bytes = disk.contents("/saved.kst");
  EXPECT_TRUE(bytes == filemodel::write(saved, before)) << "the saved bytes are not the format's";

  CapturingLogSink log;
  Zr::Ptr<kesta> again(new kesta(testutil::wide("/saved.kst"), INT_MAX, false));
  const filemodel::Loaded expected = filemodel::load(bytes);
  const filemodel::Content reloaded = contentOf(*again);
  EXPECT_EQ(filemodel::difference(expected.content, reloaded), "");
  EXPECT_EQ(log.text(), expected.log);
  std::string why;
  EXPECT_TRUE(KestaDebug::check(*again, &why)) << why;
  EXPECT_TRUE(KestaDebug::check(db, &why)) << why;

  filemodel::Content rewritten = saved;
  for (std::vector<std::string>& record : rewritten.records) {
    for (std::string& field : record) field = filemodel::rewritten(field);
  }
  return reloaded.valid && reloaded.columns == saved.columns && reloaded.records == rewritten.records;
}

}  // namespace reliability
