#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "support/Notifier.h"

namespace {

using Journal = std::vector<std::string>;

int type_of(const char* name) { return NotifyMsgTypeDictionary::instance().intern(name); }

// Writes its name and the message text into a shared journal; `hook` runs during delivery.
struct Listener {
  Listener(std::string n, Journal& j) : name(std::move(n)), journal(j) {}
  int onMsg(const NotifyMsg& msg) {
    journal.push_back(name + ":" + msg.text().c_str());
    if (hook) hook();
    return 0;
  }
  void listen(Notifier& n, int type) { guard = n.registerNotification(this, &Listener::onMsg, type); }
  std::string name;
  Journal& journal;
  std::function<void()> hook;
  Zr::Ptr<Zr::Guard> guard;
};

struct Counter : Callback<NotifyMsg> {
  int call(const NotifyMsg&) override { return ++calls; }
  std::atomic<int> calls{0};
};

TEST(Notifier, DeliversByTypeInRegistrationOrder) {
  const int deleted = type_of("recordsDeleted"), other = type_of("test.other");
  EXPECT_NE(deleted, type_of("recordsdeleted"));
  Journal journal;
  Listener a("a", journal), b("b", journal), c("c", journal), d("d", journal);
  Notifier n;
  b.listen(n, deleted);
  d.listen(n, other);
  a.listen(n, deleted);
  {
    CriticalSection::Lock hold(n.lock());  // callers may hold the lock around attaching
    c.listen(n, deleted);
  }
  EXPECT_EQ(n.listenerCount(), 4u);
  n.issueNotification(NotifyMsg("3 4 "), deleted);
  n.issueNotification(NotifyMsg("x"), other);
  n.issueNotification(NotifyMsg("nobody"), type_of("test.unheard"));
  EXPECT_EQ(journal, (Journal{"b:3 4 ", "a:3 4 ", "c:3 4 ", "d:x"}));
}

TEST(Notifier, GuardReleaseAndDeregisterByGuard) {
  Journal journal;
  Listener a("a", journal), b("b", journal), c("c", journal);
  Notifier n, other;
  const int t = type_of("test.guard");
  a.listen(n, t);
  b.listen(n, t);
  c.listen(other, t);
  // Releasing the last reference ends a registration; a copy keeps it.
  Zr::Ptr<Zr::Guard> copy = a.guard;
  a.guard = nullptr;
  n.issueNotification(NotifyMsg("1"), t);
  copy = nullptr;
  n.issueNotification(NotifyMsg("2"), t);
  // Deregistering by guard ends it even while a copy lives, and resets the guard.
  copy = b.guard;
  n.deregisterNotification(b.guard);
  EXPECT_FALSE(b.guard);
  n.issueNotification(NotifyMsg("3"), t);
  copy = nullptr;  // ending an ended registration again is harmless
  EXPECT_EQ(n.listenerCount(), 0u);
  n.deregisterNotification(c.guard);  // registered with `other`: left alone
  EXPECT_TRUE(c.guard);
  other.issueNotification(NotifyMsg("4"), t);
  EXPECT_EQ(journal, (Journal{"a:1", "b:1", "b:2", "c:4"}));
}

TEST(Notifier, DeregisterByStampEndsEveryRegistrationWithThatStamp) {
  Notifier n;
  const int t = type_of("test.stamp"), u = type_of("test.stamp2");
  IdStamp shared, own;
  Zr::Ptr<Counter> first(new Counter), second(new Counter), third(new Counter);
  auto g1 = n.registerCallback(Zr::Ptr<Callback<NotifyMsg>>(first), t, shared);
  auto g2 = n.registerCallback(Zr::Ptr<Callback<NotifyMsg>>(second), u, shared);
  auto g3 = n.registerCallback(Zr::Ptr<Callback<NotifyMsg>>(third), t, own);
  for (int round = 0; round < 2; ++round) {
    n.issueNotification(NotifyMsg(), t);
    n.issueNotification(NotifyMsg(), u);
    if (round == 0) n.deregisterNotification(IdStamp(shared));
  }
  EXPECT_EQ(n.listenerCount(), 1u);
  EXPECT_EQ(first->calls, 1);
  EXPECT_EQ(second->calls, 1);
  EXPECT_EQ(third->calls, 2);
  g1 = g2 = nullptr;  // the guards of ended registrations may still be released
  EXPECT_EQ(n.listenerCount(), 1u);
}

// The listeners live on the heap: calling one after it was deleted would be a use after free,
// which the sanitizer build reports.
TEST(Notifier, ListenersMayEndRegistrationsOrTheNotifierDuringDelivery) {
  Journal journal;
  Notifier n;
  const int t = type_of("test.release");
  std::unique_ptr<Listener> l[4];
  const char* names[] = {"first", "killer", "victim", "last"};
  for (int i = 0; i < 4; ++i) {
    l[i] = std::make_unique<Listener>(names[i], journal);
    l[i]->listen(n, t);
  }
  auto &killer = l[1], &victim = l[2];
  killer->hook = [&] {
    victim.reset();           // another listener, with its guard, dies
    killer->guard = nullptr;  // and this one ends its own registration while running
  };
  n.issueNotification(NotifyMsg("go"), t);
  EXPECT_EQ(journal, (Journal{"first:go", "killer:go", "last:go"}));
  EXPECT_EQ(n.listenerCount(), 2u);
  killer.reset();
  n.issueNotification(NotifyMsg("again"), t);
  EXPECT_EQ(journal, (Journal{"first:go", "killer:go", "last:go", "first:again", "last:again"}));

  // A listener destroys the notifier: the rest are skipped, and the guards outlive it.
  journal.clear();
  auto doomed = std::make_unique<Notifier>();
  Listener a("a", journal), b("b", journal);
  a.listen(*doomed, t);
  b.listen(*doomed, t);
  a.hook = [&] { doomed.reset(); };
  Notifier* raw = doomed.get();
  raw->issueNotification(NotifyMsg("bye"), t);
  EXPECT_TRUE(doomed == nullptr);
  EXPECT_TRUE(a.guard);
  EXPECT_EQ(journal, Journal{"a:bye"});
}

TEST(Notifier, RegisteringAndIssuingFromSeveralThreads) {
  Notifier n;
  const int t = type_of("test.threads");
  Zr::Ptr<Counter> steady(new Counter());
  auto steady_guard = n.registerCallback(Zr::Ptr<Callback<NotifyMsg>>(steady), t);
  std::atomic<bool> stop{false};
  std::thread churn([&] {
    for (int i = 0; i < 2000; ++i) {
      auto g = n.registerCallback(Zr::Ptr<Callback<NotifyMsg>>(new Counter()), t);
      if (i % 2) n.deregisterNotification(g);
    }
    stop = true;
  });
  int issued = 0;
  for (; !stop; ++issued) n.issueNotification(NotifyMsg("tick"), t);
  churn.join();
  EXPECT_EQ(steady->calls.load(), issued);
  EXPECT_EQ(n.listenerCount(), 1u);
}

TEST(NotifyMsgTypeDictionary, SameNameSameNumberFromManyThreads) {
  constexpr int kThreads = 8, kNames = 64;
  auto name_of = [](int i) { return "test.concurrent." + std::to_string(i); };
  std::vector<std::vector<int>> seen(kThreads, std::vector<int>(kNames));
  std::vector<std::thread> threads;
  for (int th = 0; th < kThreads; ++th) {
    threads.emplace_back([th, &seen, &name_of] {
      // Each thread starts at a different name, so first interns race.
      for (int k = 0; k < kNames; ++k) {
        int i = (k + th * 7) % kNames;
        seen[th][i] = NotifyMsgTypeDictionary::instance().intern(name_of(i).c_str());
      }
    });
  }
  for (auto& th : threads) th.join();
  std::set<int> distinct;
  for (int i = 0; i < kNames; ++i) {
    for (int th = 1; th < kThreads; ++th) EXPECT_EQ(seen[th][i], seen[0][i]) << i;
    distinct.insert(seen[0][i]);
    EXPECT_EQ(NotifyMsgTypeDictionary::instance().nameOf(seen[0][i]), name_of(i).c_str());
  }
  EXPECT_EQ(distinct.size(), std::size_t(kNames));
  EXPECT_EQ(NotifyMsgTypeDictionary::instance().nameOf(-5), "");
}

TEST(NotifyMsgTokenIterator, WalksSpaceSeparatedWords) {
  const struct {
    const char* text;
    std::vector<std::string> words;
  } cases[] = {{"3 4 7 ", {"3", "4", "7"}}, {"12", {"12"}}, {"  0   1  ", {"0", "1"}}, {"", {}}, {"   ", {}}};
  for (const auto& c : cases) {
    std::vector<std::string> got;
    for (NotifyMsgTokenIterator it(NotifyMsg(c.text)); it; ++it) got.emplace_back(it.current());
    EXPECT_EQ(got, c.words) << '"' << c.text << '"';
  }
  NotifyMsgTokenIterator it{LightweightString<char>("5 6")};  // keeps the text alive itself
  EXPECT_EQ((++it).current(), "6");
  EXPECT_FALSE(++it);
  EXPECT_FALSE(++it);
}

}  // namespace
