#include "container/ZRContainerFile.h"

#include <cstdlib>
#include <cwctype>

#include "support/OS.h"
#include "support/StringUtils.h"

namespace {

const char kCookieField[] = "Cookie";

bool ends_with_ignoring_case(const LightweightString<wchar_t>& text, const wchar_t* suffix) {
  std::size_t n = std::wcslen(suffix);
  if (text.size() < n) return false;
  const wchar_t* tail = text.c_str() + text.size() - n;
  for (std::size_t i = 0; i < n; ++i) {
    if (std::towlower(static_cast<wint_t>(tail[i])) != std::towlower(static_cast<wint_t>(suffix[i]))) return false;
  }
  return true;
}

}  // namespace

const char* ZRContainerFile::getNameParamKey() { return "Name"; }
const char* ZRContainerFile::getPermanentParamKey() { return "Permanent"; }

Cookie ZRContainerFile::getCookieFromFilename(const LightweightString<wchar_t>& fileName) {
  Cookie cookie(stripPathAndExt(fileName), false);
  if (!fileName.empty() && ends_with_ignoring_case(fileName, L"sg")) return convertCookie(cookie, 'M', 255);
  if (ends_with_ignoring_case(fileName, L"rak")) return convertCookie(cookie, 'B', 255);
  return cookie;
}

// ------------------------------------------------------------------------------ Reader::Item

LightweightString<char> ZRContainerFile::Reader::Item::getAttrib(unsigned field) const {
  if (!record_) return {};
  return record_->getField(static_cast<unsigned short>(field));
}

int ZRContainerFile::Reader::Item::getAttrib(unsigned field, int dflt) const {
  const char* text = record_ ? record_->get_field(static_cast<unsigned short>(field)) : nullptr;
  return text ? static_cast<int>(std::strtol(text, nullptr, 10)) : dflt;
}

double ZRContainerFile::Reader::Item::getAttrib(unsigned field, double dflt) const {
  const char* text = record_ ? record_->get_field(static_cast<unsigned short>(field)) : nullptr;
  return text ? std::strtod(text, nullptr) : dflt;
}

// ------------------------------------------------------------------------------------ Reader

ZRContainerFile::Reader::Reader(LightweightString<wchar_t> fileName, bool headerOnly)
    : db_(new kesta(fileName, headerOnly ? 0 : 2147483647, true)), cookie_(stripPathAndExt(fileName), false) {}

bool ZRContainerFile::Reader::valid() const {
  return db_->get_valid() && static_cast<int>(db_->get_fieldnum(kCookieField)) != -1;
}

unsigned ZRContainerFile::Reader::getNumItems() const { return db_->get_num_records(); }

ZRContainerFile::Reader::Item ZRContainerFile::Reader::getItem(unsigned i) const {
  if (!valid() || i >= getNumItems()) return Item();
  Zr::Ptr<dbrecord> record = db_->get_record(i);
  if (!record) return Item();
  unsigned field = db_->get_fieldnum(kCookieField);
  return Item(record.get(), Cookie(record->getField(static_cast<unsigned short>(field)), true));
}

int ZRContainerFile::Reader::getItemAttribIndex(const char* name) const {
  if (!valid()) return -1;
  return static_cast<int>(db_->get_fieldnum(name ? LightweightString<char>(name) : LightweightString<char>()));
}

CookieSet ZRContainerFile::Reader::getContents() const {
  CookieSet contents;
  for (unsigned i = 0, n = getNumItems(); i < n; ++i) contents.add(getItem(i).getCookie());
  return contents;
}

bool ZRContainerFile::Reader::contains(const Cookie& cookie) const {
  unsigned field = db_->get_fieldnum(kCookieField);
  if (static_cast<int>(field) == -1) return false;
  for (unsigned row = 0; row < db_->get_num_records(); ++row) {
    Zr::Ptr<dbrecord> record = db_->get_record(row);
    LightweightString<char> text =
        record ? record->getField(static_cast<unsigned short>(field)) : LightweightString<char>();
    if (Cookie(text, false).compare(cookie) == 0) return true;
  }
  return false;
}

LightweightString<char> ZRContainerFile::Reader::getAttrib(LightweightString<char> key) const {
  if (!valid()) return {};
  return db_->getParamVal(key.c_str());
}

int ZRContainerFile::Reader::getAttrib(LightweightString<char> key, int dflt) const {
  LightweightString<char> text = getAttrib(key);
  return text.empty() ? dflt : static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

double ZRContainerFile::Reader::getAttrib(LightweightString<char> key, double dflt) const {
  LightweightString<char> text = getAttrib(key);
  return text.empty() ? dflt : std::strtod(text.c_str(), nullptr);
}

LightweightString<char> ZRContainerFile::Reader::getName() const { return getAttrib(getNameParamKey()); }

LightweightString<wchar_t> ZRContainerFile::Reader::getNameW() const { return fromUTF8(getName()); }

bool ZRContainerFile::Reader::isPermanent() const {
  bool on = false;
  return BoolFromString(getAttrib(getPermanentParamKey()), on) && on;
}

// ------------------------------------------------------------------------------------ Writer

ZRContainerFile::Writer::Writer(DBFieldDesc* fields)
    : db_(new kesta(static_cast<const DBFieldDesc*>(fields))),
      cookie_index_(static_cast<int>(db_->get_fieldnum(kCookieField))) {}

dbrecord* ZRContainerFile::Writer::addItem(const Cookie& cookie) {
  if (cookie.kind() == 'I') return nullptr;
  unsigned row = db_->add_records(1);
  Zr::Ptr<dbrecord> record = db_->get_record(row);
  if (!record) return nullptr;
  record->set_field(cookie_index_, cookie.asString(true).c_str(), true);
  return record.get();
}

void ZRContainerFile::Writer::setAttrib(LightweightString<char> key, LightweightString<char> value) {
  db_->add_param(key, value);
}

void ZRContainerFile::Writer::setName(LightweightString<char> name) { setAttrib(getNameParamKey(), name); }

void ZRContainerFile::Writer::setPermanent(bool on) { setAttrib(getPermanentParamKey(), BoolAsString(on)); }

void ZRContainerFile::Writer::save(const LightweightString<wchar_t>& fileName) {
  if (!fileExists(fileName)) {
    db_->set_filename(fileName);
    db_->save_text();
    return;
  }
  LightweightString<wchar_t> temporary(fileName);
  temporary += L".tmp";
  db_->set_filename(temporary);
  db_->save_text();
  OS()->fileSystem()->move(toUTF8(temporary).c_str(), toUTF8(fileName).c_str(), 0);
}
