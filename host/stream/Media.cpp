#include "host/stream/Media.h"

#include <algorithm>

#include "base/reflect/Names.h"

namespace nimbo::stream {

using base::Hash;

namespace {

/// Stores `number` into `value`, an object of a type that `Writer` was made for.
using Writer = void (*)(void* value, long long number);

template <class T>
void Write(void* value, long long number) {
  *static_cast<T*>(value) = static_cast<T>(number);
}

struct NumberType {
  const std::type_info& type;
  Writer write;
};

const NumberType NumberTypes[] = {
    {typeid(unsigned char), Write<unsigned char>},
    {typeid(unsigned short), Write<unsigned short>},
    {typeid(unsigned int), Write<unsigned int>},
    {typeid(unsigned long long), Write<unsigned long long>},
    {typeid(unsigned long), Write<unsigned long>},
    {typeid(char), Write<char>},
    {typeid(short), Write<short>},
    {typeid(int), Write<int>},
    {typeid(long long), Write<long long>},
    {typeid(long), Write<long>},
    {typeid(signed char), Write<signed char>},
    {typeid(bool), Write<bool>},
    {typeid(float), Write<float>},
    {typeid(double), Write<double>},
};

std::string Hexadecimal(const std::vector<unsigned char>& bytes) {
  constexpr char Digits[] = "0123456789abcdef";
  constexpr unsigned LowDigit = 0x0F;
  std::string text;
  for (const unsigned char byte : bytes) {
    text += Digits[byte >> 4];
    text += Digits[byte & LowDigit];
  }
  return text;
}

}  // namespace

bool Media::GetWithType(const char* name, void* value, const std::type_info& requested,
                        const Accept& accept) {
  const std::uint32_t id = Hash(name);
  for (const Entry& entry : _entries) {
    if (entry.id != id) continue;
    if (accept && !accept(entry.type)) return false;
    if (!entry.type) return false;
    if (entry.integer && requested == typeid(long long)) {
      Write<long long>(value, entry.number);
      return true;
    }
    if (*entry.type == typeid(unsigned char*)) {
      if (requested != typeid(unsigned char*)) return false;
      // The interface's type lacks the const; readers change nothing.
      *static_cast<unsigned char**>(value) = const_cast<unsigned char*>(entry.bytes.data());
      return true;
    }
    if (requested != *entry.type) return false;
    for (const NumberType& known : NumberTypes) {
      if (known.type != requested) continue;
      known.write(value, entry.number);
      return true;
    }
    return false;
  }
  return false;
}

bool Media::SetStr(const char*, const char*) { return false; }

bool Media::GetStr(const char* key, std::string& value) {
  const std::uint32_t id = Hash(key);
  for (const Entry& entry : _entries) {
    if (entry.id != id) continue;
    if (!entry.type) return false;
    value = *entry.type == typeid(unsigned char*) ? Hexadecimal(entry.bytes)
                                                  : std::to_string(entry.number);
    return true;
  }
  return false;
}

void Media::SetInt(const char* name, int value) { SetTyped(name, &typeid(int), value); }

void Media::SetUnsigned(const char* name, unsigned int value) {
  SetTyped(name, &typeid(unsigned int), value);
}

void Media::SetBytes(const char* name, const unsigned char* bytes, std::size_t size) {
  Entry& entry = Slot(name);
  entry.type = &typeid(unsigned char*);
  entry.integer = false;
  entry.number = 0;
  entry.bytes.assign(bytes, bytes + size);
}

void Media::SetTyped(const char* name, const std::type_info* type, long long value) {
  Entry& entry = Slot(name);
  entry.type = type;
  entry.integer = base::IsIntegerParameter(type);
  entry.number = value;
  entry.bytes.clear();
}

Media::Entry& Media::Slot(const char* name) {
  const std::uint32_t id = Hash(name);
  for (Entry& entry : _entries) {
    if (entry.id == id) return entry;
  }
  _entries.push_back({id, nullptr, false, 0, {}});
  return _entries.back();
}

Held<Media> NewH264Media(int width, int height, std::span<const unsigned char> sps,
                         std::span<const unsigned char> pps) {
  Held<Media> media(new Media("h264"));
  media->SetInt("w", width);
  media->SetInt("h", height);
  media->SetBytes("sps", sps.data(), sps.size());
  media->SetUnsigned("isps", static_cast<unsigned int>(sps.size()));
  media->SetBytes("pps", pps.data(), pps.size());
  media->SetUnsigned("ipps", static_cast<unsigned int>(pps.size()));
  return media;
}

Held<Media> NewAacMedia(int adtsLength, int profile, int channels, int rate) {
  Held<Media> media(new Media("aac"));
  media->SetInt("adtslen", adtsLength);
  media->SetInt("profile", profile);
  media->SetInt("channel", channels);
  media->SetInt("rate", rate);
  return media;
}

bool IsVideo(const char* codec) {
  static const std::uint32_t codecs[] = {base::Hash("h264"), base::Hash("hevc"), base::Hash("av1")};
  return std::ranges::find(codecs, base::Hash(codec)) != std::end(codecs);
}

bool IsVideo(const Packet& packet) { return packet.Media() && IsVideo(packet.Media()->Codec()); }

}  // namespace nimbo::stream
