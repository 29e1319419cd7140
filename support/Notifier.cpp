#include "support/Notifier.h"

#include <atomic>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

std::atomic<uint64_t> g_next_stamp{1};

bool is_word_break(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// One registration. Delivery holds its own references to these, so a registration that ends
// mid-delivery is still there to be asked whether it is live.
using InvokerFn = int (*)(iObject* callback, const void* msg);

struct Registration final : iObject {
  Registration(const Zr::Ptr<iObject>& cb, InvokerFn inv, int t, const IdStamp& s)
      : callback(cb), invoker(inv), type(t), stamp(s) {}

  std::atomic<bool> live{true};
  Zr::Ptr<iObject> callback;  // changed only under the registry's lock
  InvokerFn invoker;
  int type;
  IdStamp stamp;
};

}  // namespace

IdStamp::IdStamp() : value_(g_next_stamp.fetch_add(1, std::memory_order_relaxed)) {}

// ------------------------------------------------------------------ type dictionary

struct NotifyMsgTypeDictionary::State {
  std::mutex mutex;
  std::unordered_map<std::string, int> numbers;
  std::vector<std::string> names;  // names[n - 1] is the name of type n
};

NotifyMsgTypeDictionary::NotifyMsgTypeDictionary() : state_(new State()) {}

NotifyMsgTypeDictionary& NotifyMsgTypeDictionary::instance() {
  // Never destroyed: notifiers in static objects may still intern while the process exits.
  static NotifyMsgTypeDictionary* dictionary = new NotifyMsgTypeDictionary();
  return *dictionary;
}

int NotifyMsgTypeDictionary::intern(const LightweightString<char>& name) {
  std::string key(name.c_str(), name.size());
  std::lock_guard<std::mutex> hold(state_->mutex);
  auto found = state_->numbers.find(key);
  if (found != state_->numbers.end()) return found->second;
  state_->names.push_back(key);
  int number = static_cast<int>(state_->names.size());
  state_->numbers.emplace(std::move(key), number);
  return number;
}

LightweightString<char> NotifyMsgTypeDictionary::nameOf(int type) const {
  std::lock_guard<std::mutex> hold(state_->mutex);
  if (type < 1 || static_cast<std::size_t>(type) > state_->names.size()) return LightweightString<char>();
  const std::string& name = state_->names[static_cast<std::size_t>(type) - 1];
  return LightweightString<char>(name.data(), name.size());
}

// ------------------------------------------------------------------ token iterator

NotifyMsgTokenIterator::NotifyMsgTokenIterator(const NotifyMsg& msg) : text_(msg.text()) { findWord(0); }

NotifyMsgTokenIterator::NotifyMsgTokenIterator(const LightweightString<char>& text) : text_(text) { findWord(0); }

NotifyMsgTokenIterator& NotifyMsgTokenIterator::operator++() {
  findWord(next_);
  return *this;
}

void NotifyMsgTokenIterator::findWord(std::size_t from) {
  const char* s = text_.c_str();
  std::size_t n = text_.size();
  while (from < n && is_word_break(s[from])) ++from;
  std::size_t end = from;
  while (end < n && !is_word_break(s[end])) ++end;
  word_ = std::string_view(s + from, end - from);
  next_ = end;
}

// ------------------------------------------------------------------ registry and guards

namespace Zr {
Guard::~Guard() = default;
}  // namespace Zr

// The listener list. The notifier holds one reference and every guard another, so a guard
// released after its notifier died still finds a (now empty) registry.
struct NotifierBase::Registry final : iObject {
  mutable CriticalSection cs;
  std::vector<Zr::Ptr<Registration>> entries;  // in registration order

  // Ends `reg` if it is still listed; answers the callback for the caller to drop outside the
  // lock, since releasing it may run arbitrary destructors.
  Zr::Ptr<iObject> end(Registration* reg) {
    CriticalSection::Lock hold(cs);
    for (auto it = entries.begin(); it != entries.end(); ++it) {
      if (it->get() == reg) {
        entries.erase(it);
        break;
      }
    }
    reg->live.store(false, std::memory_order_release);
    Zr::Ptr<iObject> callback;
    callback.swap(reg->callback);
    return callback;
  }

  // Ends every registration accepted by `which`; answers their callbacks, to drop unlocked.
  template <class Pred>
  std::vector<Zr::Ptr<iObject>> endAll(Pred which) {
    std::vector<Zr::Ptr<iObject>> dropped;
    CriticalSection::Lock hold(cs);
    std::vector<Zr::Ptr<Registration>> kept;
    for (auto& reg : entries) {
      if (which(*reg)) {
        reg->live.store(false, std::memory_order_release);
        dropped.emplace_back();
        dropped.back().swap(reg->callback);
      } else {
        kept.push_back(reg);
      }
    }
    entries.swap(kept);
    return dropped;
  }
};

class NotifierBase::CallbackGuard final : public Zr::Guard {
 public:
  CallbackGuard(Registry* registry, Registration* reg) : registry_(registry), reg_(reg) {}
  ~CallbackGuard() override { registry_->end(reg_.get()); }

  Registry* registry() const noexcept { return registry_.get(); }
  Registration* registration() const noexcept { return reg_.get(); }

 private:
  Zr::Ptr<Registry> registry_;
  Zr::Ptr<Registration> reg_;
};

// ------------------------------------------------------------------ notifier

NotifierBase::NotifierBase() : registry_(new Registry()) { registry_->addRef(); }

NotifierBase::~NotifierBase() {
  registry_->endAll([](const Registration&) { return true; });
  if (registry_->releaseRef() == 0) delete registry_;
}

Zr::Ptr<Zr::Guard> NotifierBase::registerErased(const Zr::Ptr<iObject>& callback, Invoker invoker, int type,
                                                const IdStamp& stamp) {
  if (!callback || !invoker) return Zr::Ptr<Zr::Guard>();
  Zr::Ptr<Registration> reg(new Registration(callback, invoker, type, stamp));
  Zr::Ptr<Zr::Guard> guard(new CallbackGuard(registry_, reg.get()));
  CriticalSection::Lock hold(registry_->cs);
  registry_->entries.push_back(reg);
  return guard;
}

void NotifierBase::issueErased(const void* msg, int type) const {
  struct Pending {
    Zr::Ptr<Registration> reg;
    Zr::Ptr<iObject> callback;  // keeps the listener alive while it runs, even if it deregisters
  };
  std::vector<Pending> pending;
  {
    CriticalSection::Lock hold(registry_->cs);
    for (const auto& reg : registry_->entries) {
      if (reg->type == type) pending.push_back({reg, reg->callback});
    }
  }
  // From here on `this` is not touched: a listener may destroy the notifier, which ends every
  // registration, so the rest are skipped.
  for (const Pending& p : pending) {
    if (p.reg->live.load(std::memory_order_acquire)) p.reg->invoker(p.callback.get(), msg);
  }
}

void NotifierBase::deregisterNotification(Zr::Ptr<Zr::Guard>& guard) {
  auto* ours = dynamic_cast<CallbackGuard*>(guard.get());
  // A guard of another notifier is left alone: ending it here would surprise its owner.
  if (!ours || ours->registry() != registry_) return;
  Zr::Ptr<iObject> callback = registry_->end(ours->registration());
  guard = nullptr;
}

void NotifierBase::deregisterNotification(const IdStamp& stamp) {
  registry_->endAll([&stamp](const Registration& reg) { return reg.stamp == stamp; });
}

std::size_t NotifierBase::listenerCount() const {
  CriticalSection::Lock hold(registry_->cs);
  return registry_->entries.size();
}

CriticalSection& NotifierBase::lock() const { return registry_->cs; }

Notifier::Notifier() = default;

Notifier::~Notifier() = default;
