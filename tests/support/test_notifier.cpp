#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/Notifier.h"

namespace {

int type_of(const char* name) { return NotifyMsgTypeDictionary::instance().intern(name); }

// A listener that writes its name and the message text into a shared journal; `hook` runs
// during delivery, after the journal entry.
struct Listener {
  Listener(std::string n, std::vector<std::string>& j) : name(std::move(n)), journal(j) {}
  int onMsg(const NotifyMsg& msg) {
    journal.push_back(name + ":" + msg.text().c_str());
    if (hook) hook();
    return 0;
  }
  std::string name;
  std::vector<std::string>& journal;
  std::function<void()> hook;
  Zr::Ptr<Zr::Guard> guard;
};

TEST(Notifier, DeliversByTypeInRegistrationOrder) {
  const int deleted = type_of("recordsDeleted");
  const int other = type_of("test.other");
  std::vector<std::string> journal;
  Listener a("a", journal), b("b", journal), c("c", journal), d("d", journal);
  Notifier n;
  b.guard = n.registerNotification(&b, &Listener::onMsg, deleted);
  d.guard = n.registerNotification(&d, &Listener::onMsg, other);
  a.guard = n.registerNotification(&a, &Listener::onMsg, deleted);
  {
    CriticalSection::Lock hold(n.lock());  // callers may hold the lock around attaching
    c.guard = n.registerNotification(&c, &Listener::onMsg, deleted);
  }
  EXPECT_EQ(n.listenerCount(), 4u);

  n.issueNotification(NotifyMsg("3 4 "), deleted);
  n.issueNotification(NotifyMsg("x"), other);
  n.issueNotification(NotifyMsg("nobody"), type_of("test.unheard"));
  EXPECT_EQ(journal, (std::vector<std::string>{"b:3 4 ", "a:3 4 ", "c:3 4 ", "d:x"}));
}

TEST(Notifier, GuardReleaseAndDeregisterByGuard) {
  std::vector<std::string> journal;
  Listener a("a", journal), b("b", journal), c("c", journal);
  Notifier n, other;
  const int t = type_of("test.guard");
  a.guard = n.registerNotification(&a, &Listener::onMsg, t);
  b.guard = n.registerNotification(&b, &Listener::onMsg, t);
  c.guard = other.registerNotification(&c, &Listener::onMsg, t);

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
  EXPECT_EQ(journal, (std::vector<std::string>{"a:1", "b:1", "b:2", "c:4"}));
}

TEST(Notifier, DeregisterByStampEndsEveryRegistrationWithThatStamp) {
  struct Counter : Callback<NotifyMsg> {
    explicit Counter(int& c) : count(c) {}
    int call(const NotifyMsg&) override { return ++count; }
    int& count;
  };
  int first = 0, second = 0, third = 0;
  Notifier n;
  const int t = type_of("test.stamp");
  const int u = type_of("test.stamp2");
  IdStamp shared, own;
  auto g1 = n.registerCallback(Zr::Ptr<Callback<NotifyMsg>>(new Counter(first)), t, shared);
  auto g2 = n.registerCallback(Zr::Ptr<Callback<NotifyMsg>>(new Counter(second)), u, shared);
  auto g3 = n.registerCallback(Zr::Ptr<Callback<NotifyMsg>>(new Counter(third)), t, own);
  n.issueNotification(NotifyMsg(), t);
  n.issueNotification(NotifyMsg(), u);
  n.deregisterNotification(IdStamp(shared));
  EXPECT_EQ(n.listenerCount(), 1u);
  n.issueNotification(NotifyMsg(), t);
  n.issueNotification(NotifyMsg(), u);
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
  EXPECT_EQ(third, 2);
  g1 = nullptr;  // the guards of ended registrations may still be released
  g2 = nullptr;
  EXPECT_EQ(n.listenerCount(), 1u);
}

// The listener objects live on the heap and hold their own guards: calling one after it was
// deleted would be a use after free, which the sanitizer build reports.
TEST(Notifier, ListenerMayReleaseItsOwnAndAnotherGuardDuringDelivery) {
  std::vector<std::string> journal;
  Notifier n;
  const int t = type_of("test.release");
  auto first = std::make_unique<Listener>("first", journal);
  auto killer = std::make_unique<Listener>("killer", journal);
  auto victim = std::make_unique<Listener>("victim", journal);
  auto last = std::make_unique<Listener>("last", journal);
  first->guard = n.registerNotification(first.get(), &Listener::onMsg, t);
  killer->guard = n.registerNotification(killer.get(), &Listener::onMsg, t);
  victim->guard = n.registerNotification(victim.get(), &Listener::onMsg, t);
  last->guard = n.registerNotification(last.get(), &Listener::onMsg, t);
  killer->hook = [&] {
    victim.reset();           // another listener, with its guard, dies
    killer->guard = nullptr;  // and this one ends its own registration while running
  };
  n.issueNotification(NotifyMsg("go"), t);
  EXPECT_EQ(journal, (std::vector<std::string>{"first:go", "killer:go", "last:go"}));
  EXPECT_EQ(n.listenerCount(), 2u);

  journal.clear();
  killer.reset();
  n.issueNotification(NotifyMsg("again"), t);
  EXPECT_EQ(journal, (std::vector<std::string>{"first:again", "last:again"}));
}

TEST(Notifier, ListenerMayDestroyTheNotifierDuringDelivery) {
  std::vector<std::string> journal;
  auto n = std::make_unique<Notifier>();
  const int t = type_of("test.destroy");
  Listener a("a", journal), b("b", journal);
  a.guard = n->registerNotification(&a, &Listener::onMsg, t);
  b.guard = n->registerNotification(&b, &Listener::onMsg, t);
  a.hook = [&] { n.reset(); };
  Notifier* raw = n.get();
  raw->issueNotification(NotifyMsg("bye"), t);
  EXPECT_TRUE(n == nullptr);
  EXPECT_EQ(journal, std::vector<std::string>{"a:bye"});
  // Both guards outlive the notifier and are released afterwards.
}

TEST(Notifier, GuardOutlivesItsNotifier) {
  std::vector<std::string> journal;
  Listener a("a", journal);
  const int t = type_of("test.outlive");
  {
    Notifier n;
    a.guard = n.registerNotification(&a, &Listener::onMsg, t);
    n.issueNotification(NotifyMsg("1"), t);
  }
  EXPECT_TRUE(a.guard);
  a.guard = nullptr;
  EXPECT_EQ(journal, std::vector<std::string>{"a:1"});
}

TEST(Notifier, RegisteringAndIssuingFromSeveralThreads) {
  struct Counter : Callback<NotifyMsg> {
    int call(const NotifyMsg&) override { return ++calls; }
    std::atomic<int> calls{0};
  };
  Notifier n;
  const int t = type_of("test.threads");
  Zr::Ptr<Counter> steady(new Counter());
  auto steady_guard = n.registerCallback(Zr::Ptr<Callback<NotifyMsg>>(steady), t);
  std::atomic<bool> stop{false};
  std::thread churn([&] {
    for (int i = 0; i < 2000; ++i) {
      Zr::Ptr<Counter> c(new Counter());
      auto g = n.registerCallback(Zr::Ptr<Callback<NotifyMsg>>(c), t);
      if (i % 2) n.deregisterNotification(g);
    }
    stop = true;
  });
  int issued = 0;
  while (!stop) {
    n.issueNotification(NotifyMsg("tick"), t);
    ++issued;
  }
  churn.join();
  EXPECT_EQ(steady->calls.load(), issued);
  EXPECT_EQ(n.listenerCount(), 1u);
}

TEST(NotifyMsgTypeDictionary, SameNameSameNumberFromManyThreads) {
  constexpr int kThreads = 8, kNames = 64;
  std::vector<std::vector<int>> seen(kThreads, std::vector<int>(kNames));
  std::vector<std::thread> threads;
  for (int th = 0; th < kThreads; ++th) {
    threads.emplace_back([th, &seen] {
      // Each thread walks the names from a different starting point, so first interns race.
      for (int k = 0; k < kNames; ++k) {
        int i = (k + th * 7) % kNames;
        std::string name = "test.concurrent." + std::to_string(i);
        seen[th][i] = NotifyMsgTypeDictionary::instance().intern(name.c_str());
      }
    });
  }
  for (auto& th : threads) th.join();
  std::set<int> distinct;
  for (int i = 0; i < kNames; ++i) {
    for (int th = 1; th < kThreads; ++th) EXPECT_EQ(seen[th][i], seen[0][i]) << i;
    distinct.insert(seen[0][i]);
    std::string name = "test.concurrent." + std::to_string(i);
    EXPECT_EQ(NotifyMsgTypeDictionary::instance().nameOf(seen[0][i]), name.c_str());
  }
  EXPECT_EQ(distinct.size(), std::size_t(kNames));
  EXPECT_EQ(type_of("recordsDeleted"), type_of("recordsDeleted"));
  EXPECT_NE(type_of("recordsDeleted"), type_of("recordsdeleted"));
  EXPECT_EQ(NotifyMsgTypeDictionary::instance().nameOf(-5), "");
}

TEST(NotifyMsgTokenIterator, WalksSpaceSeparatedWords) {
  struct Case {
    const char* text;
    std::vector<std::string> words;
  };
  const Case cases[] = {
      {"3 4 7 ", {"3", "4", "7"}}, {"12", {"12"}}, {"  0   1  ", {"0", "1"}}, {"", {}}, {"   ", {}},
  };
  for (const Case& c : cases) {
    std::vector<std::string> got;
    for (NotifyMsgTokenIterator it(NotifyMsg(c.text)); it; ++it) got.emplace_back(it.current());
    EXPECT_EQ(got, c.words) << '"' << c.text << '"';
  }
  // The iterator keeps the text alive itself.
  NotifyMsgTokenIterator it{LightweightString<char>("5 6")};
  ++it;
  EXPECT_EQ(it.current(), "6");
  ++it;
  EXPECT_FALSE(it);
  ++it;
  EXPECT_FALSE(it);
}

TEST(IdStamp, DefaultStampsAreUniqueAcrossThreadsAndCopiesEqual) {
  constexpr int kThreads = 4, kEach = 1000;
  std::vector<std::vector<uint64_t>> made(kThreads);
  std::vector<std::thread> threads;
  for (int th = 0; th < kThreads; ++th) {
    threads.emplace_back([&made, th] {
      for (int i = 0; i < kEach; ++i) made[th].push_back(IdStamp().value());
    });
  }
  for (auto& th : threads) th.join();
  std::set<uint64_t> all;
  for (auto& v : made) all.insert(v.begin(), v.end());
  EXPECT_EQ(all.size(), std::size_t(kThreads * kEach));
  IdStamp a;
  IdStamp copy = a;
  EXPECT_EQ(copy, a);
}

}  // namespace
