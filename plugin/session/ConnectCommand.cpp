#include "plugin/session/ConnectCommand.h"

#include <cstring>
#include <initializer_list>

namespace nimbo::plugin {

namespace {

AVal View(const char* text) {
  return {const_cast<char*>(text), static_cast<int>(std::strlen(text))};
}

/// Writes AMF0 values one behind the other, until one does not fit.
class Values {
 public:
  Values(char* begin, char* end) : _next(begin), _end(end) {}

  void Text(const AVal& text) {
    if (_next) _next = AMF_EncodeString(_next, _end, &text);
  }
  void Number(double number) {
    if (_next) _next = AMF_EncodeNumber(_next, _end, number);
  }
  void Boolean(bool value) {
    if (_next) _next = AMF_EncodeBoolean(_next, _end, value);
  }
  void Property(const char* name, const AVal& text) {
    const AVal key = View(name);
    if (_next) _next = AMF_EncodeNamedString(_next, _end, &key, &text);
  }
  void Optional(const char* name, const AVal& text) {
    if (text.av_len) Property(name, text);
  }
  void Property(const char* name, double number) {
    const AVal key = View(name);
    if (_next) _next = AMF_EncodeNamedNumber(_next, _end, &key, number);
  }
  void Extra(AMFObjectProperty& property) {
    if (_next) _next = AMFProp_Encode(&property, _next, _end);
  }
  /// A list of texts.
  void Property(const char* name, const std::vector<std::string>& texts) {
    const std::size_t length = std::strlen(name);
    Bytes({static_cast<int>(length >> 8), static_cast<int>(length & 0xFF)});
    for (std::size_t i = 0; i < length; ++i) Bytes({name[i]});
    Bytes({AMF_STRICT_ARRAY, 0, 0, 0, static_cast<int>(texts.size())});
    for (const std::string& text : texts) Text(View(text.c_str()));
  }
  void ObjectBegins() { Bytes({AMF_OBJECT}); }
  void ObjectEnds() { Bytes({0, 0, AMF_OBJECT_END}); }

  /// Where the next value goes; null when one did not fit.
  char* End() const { return _next; }

 private:
  void Bytes(std::initializer_list<int> bytes) {
    if (_next && _end - _next <= static_cast<long>(bytes.size())) _next = nullptr;
    if (!_next) return;
    for (const int byte : bytes) *_next++ = static_cast<char>(byte);
  }

  char* _next;
  char* _end;
};

}  // namespace

Status SendConnectCommand(RTMP& session, const SessionOptions& options) {
  constexpr int CommandChannel = 3;
  constexpr std::size_t RoomSize = 4096;
  char room[RoomSize];
  char* const body = room + RTMP_MAX_HEADER_SIZE;
  RTMP_LNK& link = session.Link;

  Values values(body, room + RoomSize);
  values.Text(View("connect"));
  values.Number(++session.m_numInvokes);
  values.ObjectBegins();
  values.Property("app", link.app);
  values.Property("type", View("nonprivate"));
  values.Optional("flashVer", link.flashVer);
  values.Optional("swfUrl", link.swfUrl);
  values.Optional("tcUrl", link.tcUrl);
  if (session.m_fEncoding != 0.0 || session.m_bSendEncoding) {
    values.Property("objectEncoding", session.m_fEncoding);
  }
  if (!options.codecs.empty()) {
    constexpr double CanReconnect = 1;
    values.Property("fourCcList", options.codecs);
    values.Property("capsEx", CanReconnect);
  }
  values.ObjectEnds();
  if (link.auth.av_len) {
    values.Boolean((link.lFlags & RTMP_LF_AUTH) != 0);
    values.Text(link.auth);
  }
  for (int i = 0; i < link.extras.o_num; ++i) values.Extra(link.extras.o_props[i]);
  if (!values.End()) return Status::Failed("the address is too long for the connect command");

  RTMPPacket packet = {};
  packet.m_headerType = RTMP_PACKET_SIZE_LARGE;
  packet.m_packetType = RTMP_PACKET_TYPE_INVOKE;
  packet.m_nChannel = CommandChannel;
  packet.m_nBodySize = static_cast<std::uint32_t>(values.End() - body);
  packet.m_body = body;
  constexpr int Remember = 1;
  if (!RTMP_SendPacket(&session, &packet, Remember)) {
    return Status::Failed("the server closed the connection behind the RTMP handshake");
  }
  return {};
}

}  // namespace nimbo::plugin
