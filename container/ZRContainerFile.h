#ifndef KESTA_CONTAINER_ZRCONTAINERFILE_H
#define KESTA_CONTAINER_ZRCONTAINERFILE_H
// ZRContainerFile: a named collection of media objects kept as an ordinary database file. Each
// item is one record whose "Cookie" field holds the item's cookie; its other fields are the
// item's attributes, by field index. The container's own attributes ("Name", "Permanent",
// anything else) are the database's parameters; its cookie comes from the file name.
//
//   ZRContainerFile::Writer w(fields);          // fields include "Cookie"
//   dbrecord* item = w.addItem(Cookie::generate());
//   item->set_field(1, "A001");
//   w.setName("Day 1 selects");
//   w.save(L"/bins/day1.rak");
//
//   ZRContainerFile::Reader r(L"/bins/day1.rak", false);
//   for (unsigned i = 0; i < r.getNumItems(); ++i) use(r.getItem(i).getCookie());
//
// Nothing throws for a bad file (except on memory exhaustion): a file that does not load or
// has no "Cookie" field gives a reader that is not valid and answers empty values.
//
// Thread safety: a reader or writer is used by one thread at a time.

#include "record/kesta.h"
#include "support/CookieContainers.h"

class KESTA_API ZRContainerFile {
 public:
  static const char* getNameParamKey();       // "Name"
  static const char* getPermanentParamKey();  // "Permanent"
  // The name without folder and extension read as a cookie; names ending in "sg" get kind
  // 'M' and those ending in "rak" kind 'B' (both qualifier 255), ignoring case.
  static Cookie getCookieFromFilename(const LightweightString<wchar_t>& fileName);

  class KESTA_API Reader {
   public:
    // One item: a record owned by the reader's database (null when invalid) and its cookie.
    // Valid while the reader lives.
    class KESTA_API Item {
     public:
      Item() = default;
      Item(const dbrecord* record, const Cookie& cookie) : record_(record), cookie_(cookie) {}
      Cookie getCookie() const { return cookie_; }
      bool isValid() const noexcept { return record_ != nullptr; }
      // The field's text; empty when there is none.
      LightweightString<char> getAttrib(unsigned field) const;
      // strtol of the field text; `dflt` only when the record yields no text at all (an empty
      // field gives 0, unlike the reader's keyed form).
      int getAttrib(unsigned field, int dflt) const;
      double getAttrib(unsigned field, double dflt) const;

     private:
      const dbrecord* record_ = nullptr;
      Cookie cookie_;
    };

    // Loads the file: no records when `headerOnly`; strict column rules.
    Reader(LightweightString<wchar_t> fileName, bool headerOnly);

    bool valid() const;  // loaded, with a "Cookie" field
    unsigned getNumItems() const;
    Item getItem(unsigned i) const;                  // an invalid item when not valid or out of range
    int getItemAttribIndex(const char* name) const;  // -1 when not valid or absent
    CookieSet getContents() const;
    bool contains(const Cookie& cookie) const;
    const Cookie& getCookie() const noexcept { return cookie_; }

    LightweightString<char> getAttrib(LightweightString<char> key) const;  // empty when absent
    int getAttrib(LightweightString<char> key, int dflt) const;            // dflt when absent or empty
    double getAttrib(LightweightString<char> key, double dflt) const;
    LightweightString<char> getName() const;
    LightweightString<wchar_t> getNameW() const;
    bool isPermanent() const;  // false when absent or not a boolean

    // The database behind the reader, for callers that need more than items.
    const kesta& database() const noexcept { return *db_; }

   private:
    Zr::Ptr<kesta> db_;
    Cookie cookie_;
  };

  class KESTA_API Writer {
   public:
    // REQUIRES: `fields` ends with a descriptor of type 0.
    explicit Writer(DBFieldDesc* fields);

    // Appends an item and sets its "Cookie" field; null (and nothing added) for a cookie of
    // kind 'I'. The record belongs to the writer's database.
    dbrecord* addItem(const Cookie& cookie);
    void setAttrib(LightweightString<char> key, LightweightString<char> value);
    void setName(LightweightString<char> name);
    void setPermanent(bool on);
    // Writes the file; over an existing file through fileName + ".tmp" moved into place.
    void save(const LightweightString<wchar_t>& fileName);

    kesta& database() noexcept { return *db_; }

   private:
    Zr::Ptr<kesta> db_;
    int cookie_index_;
  };
};

#endif
