#include "tests/support/Command.h"

#include <librtmp/amf.h>

#include <cstring>

namespace nimbo::test {
namespace {

std::string Text(const AVal& value) {
  return std::string(value.av_val, static_cast<std::size_t>(value.av_len));
}

void CollectTexts(AMFObject& object, std::vector<std::string>& texts) {
  for (int i = 0; i < AMF_CountProp(&object); ++i) {
    AMFObjectProperty* const property = AMF_GetProp(&object, nullptr, i);
    AVal value = {};
    if (AMFProp_GetType(property) == AMF_OBJECT) {
      AMFObject inner;
      AMFProp_GetObject(property, &inner);
      CollectTexts(inner, texts);
    } else if (AMFProp_GetType(property) == AMF_STRING) {
      AMFProp_GetName(property, &value);
      const std::string key = value.av_len > 0 ? Text(value) + "=" : "";
      AMFProp_GetString(property, &value);
      texts.push_back(key + Text(value));
    }
  }
}

void AppendText(Bytes& out, const std::string& text) {
  AppendBig(out, text.size(), 2);
  out.insert(out.end(), text.begin(), text.end());
}

void AppendString(Bytes& out, const std::string& text) {
  out.push_back(AMF_STRING);
  AppendText(out, text);
}

}  // namespace

Command DecodeCommand(const Bytes& body) {
  Command command;
  AMFObject object;
  if (AMF_Decode(&object, reinterpret_cast<const char*>(body.data()), static_cast<int>(body.size()),
                 FALSE) > 0) {
    CollectTexts(object, command.texts);
    if (!command.texts.empty()) {
      command.name = command.texts.front();
      command.texts.erase(command.texts.begin());
      command.transaction = AMFProp_GetNumber(AMF_GetProp(&object, nullptr, 1));
    }
  }
  AMF_Reset(&object);
  return command;
}

Bytes EncodeNumber(double number) {
  Bytes out{AMF_NUMBER};
  std::uint64_t bits = 0;
  std::memcpy(&bits, &number, sizeof bits);
  AppendBig(out, bits, sizeof bits);
  return out;
}

Bytes EncodeInformation(const std::string& level, const std::string& code) {
  Bytes out{AMF_OBJECT};
  AppendText(out, "level");
  AppendString(out, level);
  AppendText(out, "code");
  AppendString(out, code);
  // librtmp reads it in every refusal, whether it is there or not.
  AppendText(out, "description");
  AppendString(out, "as scripted");
  AppendText(out, "");
  out.push_back(AMF_OBJECT_END);
  return out;
}

Bytes EncodeCommand(const std::string& name, double transaction, const Bytes& end) {
  Bytes out;
  AppendString(out, name);
  Append(out, EncodeNumber(transaction));
  out.push_back(AMF_NULL);
  Append(out, end);
  return out;
}

}  // namespace nimbo::test
