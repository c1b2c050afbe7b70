#include "plugin/rtmp/SendBuffers.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "nimbo/base/attr_set.h"
#include "nimbo/base/ostream.h"

namespace nimbo::plugin::rtmp {

using log::Colour;
using log::Failure;
using log::Line;

SendBuffers::send_buffer_t* SendBuffers::SendBufferCreate(unsigned int size) {
  if (size == 0) {
    Failure(_profile.places.sendBufferCreate, "size <= 0");
    return nullptr;
  }
  const std::size_t words = (static_cast<std::size_t>(size) + 3) / sizeof(std::uint32_t);
  // A size whose rounding up passes the end of 32 bits leaves no words on a 32-bit target.
  const bool representable = words != 0 && words <= UINT32_MAX / sizeof(std::uint32_t);
  auto buf = std::make_unique<send_buffer_t>();
  // Zero pages cost no memory as long as nothing is written to them.
  void* ptr = representable ? std::calloc(words, sizeof(std::uint32_t)) : nullptr;
  if (!ptr) {
    Failure(_profile.places.sendBufferCreate, "!ptr");
    return nullptr;
  }
  buf->data = static_cast<unsigned char*>(ptr);
  buf->capacity = static_cast<unsigned int>(words * sizeof(std::uint32_t));
  return buf.release();
}

void SendBuffers::SendBufferDestroy(send_buffer_t* buf) {
  if (!buf) return;
  std::free(buf->data);
  delete buf;
}

bool SendBuffers::SendBufferRealloc(send_buffer_t*& buf, unsigned int size) {
  constexpr unsigned int Step = 1024;
  if (_profile.detailed) {
    Line(Colour::Cyan, _profile.places.sendBufferRealloc) << SendBufferToString(buf);
  }
  if (!buf || !buf->data) return false;
  send_buffer_t* new_buf = SendBufferCreate((size & ~(Step - 1)) + Step);
  if (!new_buf) return Failure(_profile.places.sendBufferRealloc, "!new_buf");
  SendBufferDestroy(buf);
  buf = new_buf;
  if (_profile.detailed) {
    Line(Colour::Cyan, _profile.places.sendBufferRealloc) << SendBufferToString(buf);
  }
  return true;
}

bool SendBuffers::SendBufferCheck(send_buffer_t*& buf, unsigned int size, bool realloc) {
  if (size <= buf->capacity) return true;
  if (_profile.detailed) {
    Line(Colour::Cyan, _profile.places.sendBufferCheck) << "buf->Size()=" << buf->capacity;
    Line(Colour::Cyan, _profile.places.sendBufferCheck) << "dest_size=" << size;
  }
  return realloc && SendBufferRealloc(buf, size);
}

std::string SendBuffers::SendBufferToString(send_buffer_t* buf) {
  if (!buf || !buf->data || buf->capacity == 0) return {};
  const auto pointerText = [](const void* pointer) {
    std::string text;
    base::ConvertToImpl(pointer, text);
    return text;
  };
  base::AttrSet attrs;
  attrs.Set("address", pointerText(buf).c_str());
  attrs.Set("data", pointerText(buf->data).c_str());
  attrs.Set("size", std::to_string(buf->capacity).c_str());
  return attrs.ToString(false);
}

void SendBuffers::DestroyBuffers() {
  for (send_buffer_t** buf : {&_vid_buffer, &_aud_buffer}) {
    SendBufferDestroy(*buf);
    *buf = nullptr;
  }
}

}  // namespace nimbo::plugin::rtmp
