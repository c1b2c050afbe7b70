#pragma once

#include <sys/types.h>

#include <memory>
#include <mutex>

#include "tests/support/Bytes.h"

namespace nimbo::test {

/// A connected socket and what is spoken on it. One thread reads; any may write or break it.
class Transport {
 public:
  explicit Transport(int descriptor) : _descriptor(descriptor) {}
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;
  virtual ~Transport();

  /// Sets the secure layer up; true at once where there is none.
  virtual bool Handshake() { return true; }
  /// As recv: 0 at the end of the stream, below zero on an error.
  virtual ssize_t Read(unsigned char* bytes, std::size_t size);
  /// False when not everything could be written.
  bool Write(const Bytes& bytes);
  /// Ends the connection in good order; a blocked Read returns.
  void Close();
  /// Ends the connection with a reset; a blocked Read returns.
  void Reset();

 protected:
  virtual ssize_t WriteSome(const unsigned char* bytes, std::size_t size);
  /// Tells the peer of a secure layer that the stream ends.
  virtual void SayGoodbye() {}
  int Descriptor() const { return _descriptor; }

 private:
  std::mutex _writing;
  int _descriptor;  ///< kept until destruction, so that no thread can meet a reused number
};

}  // namespace nimbo::test
