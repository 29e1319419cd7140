// CriticalSection over a recursive mutex: a notifier delivering a message may be re-entered
// by a listener on the same thread.

#include "support/CriticalSection.h"

CriticalSection::CriticalSection() = default;

CriticalSection::~CriticalSection() = default;

void CriticalSection::enter() { mutex_.lock(); }

void CriticalSection::leave() { mutex_.unlock(); }
