#pragma once

#include <memory>

#include "nimbo/stream/ring.h"

namespace nimbo::stream {

template <class T>
typename IRing<T>::Reader* IRing<T>::CreateReader(base::object* owner) {
  const auto [ring, position] = StartPoint();
  auto reader = std::make_unique<Reader>();
  reader->owner = owner;
  if (ring) {
    ring->AddReader(*reader);
    if (IRing* joined = __atomic_load_n(&reader->ring, __ATOMIC_ACQUIRE))
      joined->ReaderAdded(*reader);
  }
  __atomic_store_n(&reader->ring, ring, __ATOMIC_RELEASE);
  __atomic_store_n(&reader->position, position, __ATOMIC_RELEASE);
  return reader.release();
}

template <class T>
IRing<T>* IRing<T>::Reader::Attached() const noexcept {
  return __atomic_load_n(&ring, __ATOMIC_ACQUIRE);
}

template <class T>
IRing<T>::Reader::~Reader() {
  if (IRing* from = Attached()) from->RemoveReader(*this);
}

template <class T>
bool IRing<T>::Reader::Pop(T& entry, std::chrono::nanoseconds timeout) {
  IRing* from = Attached();
  if (!from) return false;
  bool woken = false;
  const int ready =
      timeout.count() < 1 ? from->Wait(*this, woken) : from->WaitFor(*this, woken, timeout.count());
  if (woken && wakeTest && !wakeTest()) return false;
  if (!ready) return false;
  T* found = from->Get(position);
  if (!found) return false;
  __atomic_store_n(&position, position + 1, __ATOMIC_RELEASE);  // others look at it meanwhile
  entry = *found;
  return true;
}

template <class T>
void IRing<T>::Reader::WaitAbort() {
  if (IRing* from = Attached()) from->Wake(*this);
}

}  // namespace nimbo::stream
