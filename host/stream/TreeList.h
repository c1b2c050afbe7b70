#pragma once

#include <cstddef>
#include <vector>

#include "nimbo/base/api.h"
#include "sync/Mutex.h"

namespace nimbo::stream {

/// Guards the lists of children. It is taken before the mutex of an object list, and no other lock
/// is taken under it.
NIMBO_API sync::Mutex& TreeMutex();

/// A list of children. It is changed on the control thread alone, which needs TreeMutex() for
/// changes only; everyone else locks it to read, and makes pins under it.
template <class T>
class TreeList {
 public:
  auto begin() const noexcept { return _list.begin(); }
  auto end() const noexcept { return _list.end(); }
  auto rbegin() const noexcept { return _list.rbegin(); }
  auto rend() const noexcept { return _list.rend(); }
  bool empty() const noexcept { return _list.empty(); }
  std::size_t size() const noexcept { return _list.size(); }
  const T& operator[](std::size_t place) const { return _list[place]; }
  const T& front() const { return _list.front(); }
  const T& back() const { return _list.back(); }

  /// [control]
  std::vector<T>& Change() REQUIRES(TreeMutex()) { return _list; }

 private:
  std::vector<T> _list;
};

}  // namespace nimbo::stream
