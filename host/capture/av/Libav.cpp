#include "host/capture/av/Libav.h"

namespace nimbo::capture::av {

std::string Dictionary::Keys() const {
  std::string keys;
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(_entries, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
    if (!keys.empty()) keys += ", ";
    keys += entry->key;
  }
  return keys;
}

std::string ErrorText(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

Status StatusOf(int result) { return result < 0 ? Status::Failed(ErrorText(result)) : Status(); }

}  // namespace nimbo::capture::av
