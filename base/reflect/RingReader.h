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
    if (IRing* joined = reader->ring) joined->ReaderAdded(*reader);
  }
  reader->ring = ring;
  reader->position = position;
  return reader.release();
}

template <class T>
IRing<T>::Reader::~Reader() {
  if (IRing* from = ring) from->RemoveReader(*this);
}

template <class T>
bool IRing<T>::Reader::Pop(T& entry, std::chrono::nanoseconds timeout) {
  IRing* from = ring;
  if (!from) return false;
  bool woken = false;
  const int ready =
      timeout.count() < 1 ? from->Wait(*this, woken) : from->WaitFor(*this, woken, timeout.count());
  if (woken && wakeTest && !wakeTest()) return false;
  if (!ready) return false;
  T* found = from->Get(position);
  if (!found) return false;
  ++position;
  entry = *found;
  return true;
}

template <class T>
void IRing<T>::Reader::WaitAbort() {
  if (IRing* from = ring) from->Wake(*this);
}

}  // namespace nimbo::stream
