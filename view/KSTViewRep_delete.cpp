// KSTViewRep: taking rows out of views, deleting records through the chain, and the deletion
// protocol by which views repair themselves.

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string>
#include <string_view>

#include "view/KSTViewRep.h"
#include "view/ViewMessages.h"

namespace view_messages {

int recordsDeleted() {
  static const int type = NotifyMsgTypeDictionary::instance().intern(LightweightString<char>("recordsDeleted"));
  return type;
}

int recordsChanged() {
  static const int type = NotifyMsgTypeDictionary::instance().intern(LightweightString<char>("recordsChanged"));
  return type;
}

}  // namespace view_messages

namespace {

// Appends the number in decimal and one space, the shape of every "recordsDeleted" text.
void appendRow(std::string& text, int64_t row) {
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, row).ptr;
  text.append(digits, end);
  text.push_back(' ');
}

void announce(const Notifier& from, const std::string& text, int type) {
  from.issueNotification(NotifyMsg(LightweightString<char>(text.data(), text.size()), Zr::Ptr<iObject>()), type);
}

// The row a token names: strtol of the word, base 10, as the C library reads it.
long tokenValue(std::string_view word) {
  const std::string text(word);
  return std::strtol(text.c_str(), nullptr, 10);
}

}  // namespace

void KSTViewRep::remove(int row, int count) {
  const int rows = index_.size();
  if (row < 0 || row >= rows) return;
  if (count < 0) count = 0;  // takes nothing out; the (empty) announcement still goes
  if (static_cast<int64_t>(row) + count > rows) count = rows - row;
  index_.removeRange(row, count);
  // The capacity rule sees the old row count: the vacated slots are kept when they fit.
  index_.sizeFor(rows - count, rows);
  std::string text;
  text.reserve(static_cast<std::size_t>(count) * 8);
  for (int r = row; r < row + count; ++r) appendRow(text, r);
  announce(*this, text, view_messages::recordsDeleted());
}

// The deletion protocol. Token k (from 0) of the message names source row value - k, since
// the k deletions before it have each moved it down by one. The walk from view row 0
// decrements every entry above that row, removes (and announces with remove) every entry
// equal to it, duplicates included, and passes smaller ones over. Each removal adds
// k + j - 1 to a summary, j being the view row where it happened; views chained on this one
// rely on that summary exactly as it stands, so it is not the view row. The summary goes out
// as "recordsDeleted", followed by an empty "recordsChanged", when anything was removed.
//
// Rows are compared as signed 64-bit numbers, so a summary of -1 makes a listener decrement
// every entry, and an entry of 0 then wraps to 4294967295, which names no source row.
//
// The walk jumps from one equal entry to the next and decrements the stretch between them in
// one step, so the state each removal announces is the one an entry-by-entry walk would have
// reached, and a listener that changes this view meanwhile is seen as such a walk sees it.
int KSTViewRep::recordsDeletedNotify(const NotifyMsg& message) {
  std::string summary;
  int removed = 0;
  int64_t k = 0;
  for (NotifyMsgTokenIterator it(message); it; ++it, ++k) {
    const int64_t named =
        static_cast<int64_t>(static_cast<uint64_t>(tokenValue(it.current())) - static_cast<uint64_t>(k));
    int j = 0;
    while (j < index_.size()) {
      const int hit = index_.findEqual(j, named);
      index_.decrementAbove(j, hit < 0 ? index_.size() : hit, named);
      if (hit < 0) break;
      remove(hit, 1);
      appendRow(summary, k + hit - 1);
      ++removed;
      j = hit;
    }
  }
  if (removed > 0) {
    announce(*this, summary, view_messages::recordsDeleted());
    announce(*this, std::string(), view_messages::recordsChanged());
  }
  return 0;
}

// A run starts at `row` and grows while each next entry names the source row after the
// previous one's, up to n - row entries; from row n - 1 on it is a single row. The bound
// compares the view row with the count, and callers depend on the runs it gives.
int KSTViewRep::runFrom(int row, int n) const {
  if (row >= n - 1) return 1;
  int run = 1;
  while (run < n - row &&
         static_cast<uint64_t>(index_.row(row + run)) == static_cast<uint64_t>(index_.row(row + run - 1)) + 1) {
    ++run;
  }
  return run;
}

// Hands view rows [row, row + count) down the chain run by run: to the source's
// delete_records when deleting, else to the base view's removeRecordsFromBaseView (or, at the
// bottom of the chain, to remove). Each hand-off comes back up as notifications that take the
// run out of this view, so the next run starts at `row` again.
int KSTViewRep::passRuns(int row, int count, bool deleting) {
  int total = 0;
  for (;;) {
    iKST* source = db();
    if (row < 0 || !source) break;
    const int n = static_cast<int>(std::min<int64_t>(count, static_cast<int64_t>(index_.size()) - row));
    if (n < 1) break;
    if (!deleting && !base_) {
      remove(row, n);
      total += n;
      break;
    }
    const int run = runFrom(row, n);
    const uint32_t first = index_.row(row);
    if (deleting) {
      source->delete_records(first, static_cast<unsigned>(run));
    } else {
      base_->removeRecordsFromBaseView(static_cast<int>(first), run);
    }
    total += run;
    count = n - run;
    if (count <= 0) break;
  }
  return total;
}

int KSTViewRep::deleteRecords(int row, int count) { return passRuns(row, count, true); }

int KSTViewRep::removeRecordsFromBaseView(int row, int count) { return passRuns(row, count, false); }

// Walks the view rows, collecting runs of rows passing `test`; each run is handed down when a
// row fails the test, after which the walk goes on one row after the run's start (the rows
// have moved down). A run still open at the end is handed down to the last row.
int KSTViewRep::forEachRun(bool (KSTViewRep::*test)(int), bool deleting) {
  int total = 0;
  int start = -1;
  for (int i = 0; i < index_.size(); ++i) {
    if ((this->*test)(i)) {
      if (start < 0) start = i;
    } else if (start >= 0) {
      passRuns(start, i - start, deleting);
      total += i - start;
      i = start;
      start = -1;
    }
  }
  if (start >= 0 && index_.size() > start) {
    const int rest = index_.size() - start;
    passRuns(start, rest, deleting);
    total += rest;
  }
  return total;
}

int KSTViewRep::deleteTagged() { return forEachRun(&KSTViewRep::tag, true); }

int KSTViewRep::removeSome(bool (KSTViewRep::*test)(int)) { return forEachRun(test, false); }

int KSTViewRep::removeTagged() { return removeSome(&KSTViewRep::tag); }

int KSTViewRep::removeNonTagged() { return removeSome(&KSTViewRep::notTagged); }
