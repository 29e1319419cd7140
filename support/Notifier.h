#ifndef KESTA_SUPPORT_NOTIFIER_H
#define KESTA_SUPPORT_NOTIFIER_H
// Notifications: typed messages delivered synchronously to registered listeners.
//
//   int deleted = NotifyMsgTypeDictionary::instance().intern("recordsDeleted");
//   Zr::Ptr<Zr::Guard> guard = db.registerNotification(this, &MyView::onDeleted, deleted);
//   ...
//   guard = nullptr;   // releasing the last reference to the guard deregisters
//
// A notifier delivers a message to the listeners registered for its type, in the order they
// registered. It copies its listener list under its lock and calls them outside it, skipping
// a listener whose registration ended meanwhile (a listener may release its own or another
// listener's guard during delivery). A guard may outlive its notifier.
//
// Thread safety: registration, deregistration and delivery may run on any thread; delivery
// runs on the issuing thread. Listeners are not serialised against each other.

#include <cstdint>
#include <string_view>

#include "support/CriticalSection.h"
#include "support/LightweightString.h"
#include "support/ZrPtr.h"

// An identity stamp naming a listener. Every default-constructed stamp is new and unique.
class KESTA_SUPPORT_API IdStamp {
 public:
  IdStamp();
  IdStamp(const IdStamp&) = default;
  IdStamp& operator=(const IdStamp&) = default;
  uint64_t value() const noexcept { return value_; }
  friend bool operator==(const IdStamp& a, const IdStamp& b) noexcept { return a.value_ == b.value_; }

 private:
  uint64_t value_;
};

class Identified {
 public:
  const IdStamp& id() const noexcept { return id_; }
  void id(const IdStamp& stamp) noexcept { id_ = stamp; }

 private:
  IdStamp id_;
};

// A message: a text and an optional object.
class KESTA_SUPPORT_API NotifyMsg {
 public:
  NotifyMsg() = default;
  NotifyMsg(const LightweightString<char>& text, const Zr::Ptr<iObject>& object) : text_(text), object_(object) {}
  explicit NotifyMsg(const LightweightString<char>& text) : text_(text) {}
  NotifyMsg(const NotifyMsg&) = default;
  NotifyMsg& operator=(const NotifyMsg&) = default;
  ~NotifyMsg() = default;

  const LightweightString<char>& text() const noexcept { return text_; }
  const Zr::Ptr<iObject>& object() const noexcept { return object_; }

 private:
  LightweightString<char> text_;
  Zr::Ptr<iObject> object_;
};

// The process-wide dictionary of message types: the same name always answers the same
// number, from any thread.
class KESTA_SUPPORT_API NotifyMsgTypeDictionary {
 public:
  static NotifyMsgTypeDictionary& instance();
  int intern(const LightweightString<char>& name);
  LightweightString<char> nameOf(int type) const;  // "" for an unknown number

 private:
  NotifyMsgTypeDictionary();
  struct State;
  State* state_;
};

// Walks the space-separated words of a message text.
//
//   for (NotifyMsgTokenIterator it(msg); it; ++it) use(it.current());
class KESTA_SUPPORT_API NotifyMsgTokenIterator {
 public:
  explicit NotifyMsgTokenIterator(const NotifyMsg& msg);
  explicit NotifyMsgTokenIterator(const LightweightString<char>& text);
  NotifyMsgTokenIterator& operator++();
  // True while the iterator stands on a word.
  explicit operator bool() const noexcept { return !word_.empty(); }
  std::string_view current() const noexcept { return word_; }

 private:
  void findWord(std::size_t from);

  LightweightString<char> text_;  // keeps the body alive while we point into it
  std::string_view word_;
  std::size_t next_ = 0;
};

namespace Zr {
// The handle of one registration; releasing its last reference ends the registration.
class KESTA_SUPPORT_API Guard : public iObject {
 public:
  ~Guard() override;
};
}  // namespace Zr

// The listener side: a callable object held by the notifier while registered.
template <class Msg>
class Callback : public iObject {
 public:
  virtual int call(const Msg& msg) = 0;
};

template <class C, class Msg, class R>
class MethodCallback : public Callback<Msg> {
 public:
  using Method = R (C::*)(const Msg&);
  MethodCallback(C* object, Method method) : object_(object), method_(method) {}
  int call(const Msg& msg) override { return static_cast<int>((object_->*method_)(msg)); }

 private:
  C* object_;
  Method method_;
};

// The message-independent core of every notifier.
class KESTA_SUPPORT_API NotifierBase {
 public:
  class CallbackGuard;

  NotifierBase();
  virtual ~NotifierBase();
  NotifierBase(const NotifierBase&) = delete;
  NotifierBase& operator=(const NotifierBase&) = delete;

  // Ends a registration by the guard it handed out, and resets the guard.
  void deregisterNotification(Zr::Ptr<Zr::Guard>& guard);
  // Ends every registration made with this stamp.
  void deregisterNotification(const IdStamp& stamp);
  // The number of live registrations (all types).
  std::size_t listenerCount() const;
  // The notifier's lock: held while its list changes; callers may hold it around attaching.
  CriticalSection& lock() const;

 protected:
  using Invoker = int (*)(iObject* callback, const void* msg);
  Zr::Ptr<Zr::Guard> registerErased(const Zr::Ptr<iObject>& callback, Invoker invoker, int type, const IdStamp& stamp);
  void issueErased(const void* msg, int type) const;

 private:
  struct Registry;
  Registry* registry_;  // shared with the guards, which may outlive this notifier
};

template <class Msg>
class GenericNotifier : public NotifierBase {
 public:
  using Client = Callback<Msg>;

  Zr::Ptr<Zr::Guard> registerCallback(const Zr::Ptr<Client>& client, int type, const IdStamp& stamp = IdStamp()) {
    return registerErased(Zr::Ptr<iObject>(client), &invoke, type, stamp);
  }
  template <class C, class R>
  Zr::Ptr<Zr::Guard> registerNotification(C* object, R (C::*method)(const Msg&), int type) {
    return registerCallback(Zr::Ptr<Client>(new MethodCallback<C, Msg, R>(object, method)), type);
  }
  void issueNotification(const Msg& msg, int type) const { issueErased(&msg, type); }

 private:
  static int invoke(iObject* callback, const void* msg) {
    return static_cast<Client*>(callback)->call(*static_cast<const Msg*>(msg));
  }
};

class KESTA_SUPPORT_API Notifier : public GenericNotifier<NotifyMsg> {
 public:
  Notifier();
  ~Notifier() override;
};

#endif
