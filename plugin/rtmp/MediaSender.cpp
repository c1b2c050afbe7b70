#include "plugin/rtmp/MediaSender.h"

#include <cstring>
#include <utility>

#include "nimbo/base/exit_call.h"
#include "plugin/bytes/AacTag.h"
#include "plugin/bytes/AvcTag.h"
#include "plugin/element/VfpBracket.h"
#include "sync/Atomic.h"

namespace nimbo::plugin::rtmp {

using base::ExitCall;
using log::Colour;
using log::Failure;
using log::Line;
using log::Site;
using stream::IMedia;
using stream::Packet;

namespace {

/// All media go out on one chunk stream.
constexpr int MediaChannel = 4;

/// RTMP time: milliseconds, modulo 2^32.
std::uint32_t Milliseconds(std::int64_t nanoseconds) {
  constexpr std::int64_t PerMillisecond = 1000000;
  return static_cast<std::uint32_t>(nanoseconds / PerMillisecond);
}

Bytes PayloadOf(const Packet& pkt) { return {pkt.Data(), pkt.Size()}; }

}  // namespace

// ---- session ------------------------------------------------------------------------------------

void MediaSender::BeginSession() {
  RepeatHeaders();
  _explained.clear();
  // Another instance may have published since.
  _vid_accepted = false;
  if (!_open) ++_counters.open;
  _open = true;
  _beside = _counters.open > 1;
  _rtmp.Resume();
}

void MediaSender::EndSession() {
  if (_open) --_counters.open;
  _open = false;
}

bool MediaSender::ConnectServer(const char* url) {
  const Site& site = _profile.places.connectServer;
  if (!_rtmp.Allocate()) return Failure(site, "!_rtmp");
  ExitCall freeSession([this] { _rtmp.Free(); });
  if (const Status usable = _rtmp.SetupUrl(url); !usable) {
    Explain(usable.Why());
    return Failure(site, "RTMP_SetupURL(_rtmp, (char*)url) == 0");
  }
  _rtmp.EnableWrite();
  if (!ConnectSteps()) return false;
  if (_profile.usesLargeChunks) SetRtmpPacketSize();
  freeSession.Clear();
  return true;
}

bool MediaSender::ConnectSteps() {
  const auto fail = [this](const Status& status, const char* condition, const char* message) {
    const Site& site = _profile.places.connectServer;
    Explain(status.Why());
    return _profile.detailed ? Failure(site, condition, message) : Failure(site, condition);
  };
  Status connected;
  Status streaming;
  {
    const VfpBracket bracket(_profile.bracketsEachCall);
    connected = _rtmp.Connect();
    if (connected) streaming = _rtmp.ConnectStream();
  }
  if (!connected) return fail(connected, "RTMP_Connect(_rtmp, __null) == 0", "RTMP connect failed");
  if (!streaming) {
    // The message names the wrong step; it has always read so, and tools look for it.
    fail(streaming, "RTMP_ConnectStream(_rtmp, 0) == 0", "RTMP close failed");
    _rtmp.Close();
    return false;
  }
  Explain(_rtmp.TakeWarning());
  return true;
}

void MediaSender::Explain(const std::string& why) {
  // While a server stays away, every attempt fails for the same reason.
  if (!why.empty() && why != _explained) {
    Line(Colour::Yellow, _profile.places.connectServer) << why;
  }
  _explained = why;
}

bool MediaSender::DisConnectServer() {
  const VfpBracket bracket(_profile.bracketsEachCall);
  _rtmp.Disconnect();
  return true;
}

bool MediaSender::SetRtmpPacketSize() {
  constexpr int ControlChannel = 2;  // RTMP 1.0, 5.4: protocol control messages
  constexpr int ChunkSize = 1024;
  constexpr std::size_t BodySize = 4;
  const Site& site = _profile.places.setRtmpPacketSize;
  if (!_rtmp.IsConnected()) return Failure(site, "!RTMP_IsConnected(_rtmp)");
  RTMPPacket packet = {};
  if (!RTMPPacket_Alloc(&packet, BodySize)) return Failure(site, "!RTMPPacket_Alloc(&packet, 4)");
  const ExitCall freeBody([&packet] { RTMPPacket_Free(&packet); });
  packet.m_headerType = RTMP_PACKET_SIZE_LARGE;
  packet.m_packetType = RTMP_PACKET_TYPE_CHUNK_SIZE;
  packet.m_nChannel = ControlChannel;
  packet.m_nBodySize = BodySize;
  ByteWriter(reinterpret_cast<unsigned char*>(packet.m_body)).u32(ChunkSize);
  _rtmp.SetOutChunkSize(ChunkSize);
  {
    const VfpBracket bracket(_profile.bracketsEachCall);
    static_cast<void>(_rtmp.Send(packet, true));
  }
  return true;
}

// ---- messages -----------------------------------------------------------------------------------

bool MediaSender::ReadyToSend(std::size_t size) {
  const Site& site = _profile.places.sendRtmpPacket;
  if (!_rtmp.IsConnected()) return Failure(site, "!RTMP_IsConnected(_rtmp)");
  return size <= MaxMessageBody || Failure(site, "size > 0xFFFFFF");
}

template <class Step>
bool MediaSender::SendNow(Step send) {
  Status sent;
  {
    const VfpBracket bracket(_profile.bracketsEachCall);
    sent = _rtmp.Listen();
    if (sent) sent = send();
  }
  if (!sent) Explain(sent.Why());
  return static_cast<bool>(sent);
}

bool MediaSender::SendMessage(RTMPPacket* packet, unsigned char type, char* data, unsigned int size,
                              unsigned int timestamp) {
  if (!ReadyToSend(size)) return false;
  packet->m_headerType = RTMP_PACKET_SIZE_LARGE;
  packet->m_packetType = type;
  packet->m_hasAbsTimestamp = 0;
  packet->m_nChannel = MediaChannel;
  packet->m_nTimeStamp = timestamp;
  packet->m_nInfoField2 = _rtmp.StreamId();
  packet->m_nBodySize = size;
  packet->m_body = data;
  return SendNow([&] { return _rtmp.Send(*packet, false); });
}

bool MediaSender::MakeRoom(send_buffer_t*& buffer, std::size_t body) {
  return body <= MaxMessageBody && buffer &&
         SendBufferCheck(buffer, static_cast<unsigned int>(RtmpHeaderSize + body), true);
}

void MediaSender::Clear(send_buffer_t* buffer) {
  if (_profile.clearsBuffers) std::memset(buffer->data, 0, buffer->capacity);
}

bool MediaSender::SendFrame(MessageType type, send_buffer_t* buffer, bool copy, Bytes header,
                            Bytes payload, const Packet& pkt) {
  const std::uint32_t timestamp = Milliseconds(pkt.TimeStamp());
  if (!copy && _rtmp.CanSendInPlace()) {
    return ReadyToSend(header.size + payload.size) && SendNow([&] {
             return _rtmp.SendInPlace(MediaChannel, type, timestamp, header, payload);
           });
  }
  Clear(buffer);
  ByteWriter body(buffer->Body());
  body.bytes(header);
  body.bytes(payload);
  return SendBody(type, buffer, body.Written(), timestamp);
}

bool MediaSender::SendBody(MessageType type, send_buffer_t* buffer, std::size_t size,
                           std::uint32_t timestamp) {
  return Send(buffer->Record(), static_cast<unsigned char>(type),
              reinterpret_cast<char*>(buffer->Body()), static_cast<unsigned int>(size), timestamp);
}

// ---- H.264 --------------------------------------------------------------------------------------

bool MediaSender::AcceptSequence(const Packet& pkt) {
  const bool alone = !_beside && _counters.open <= 1;
  const std::uint32_t seed = alone ? _counters.s_last_vid_seq.load() : 0;
  const std::uint32_t last = _vid_accepted ? _last_vid_seq : seed;
  if (last != 0 && pkt.Sequence() != last + 1) {
    if (_profile.detailed) Line(Colour::Red) << pkt.Sequence() << "," << last;
    _vid_lost = true;
    if (!pkt.IsKey()) return false;
  }
  _last_vid_seq = pkt.Sequence();
  _vid_accepted = true;
  _counters.s_last_vid_seq = _last_vid_seq;
  _vid_lost = false;
  return true;
}

bool MediaSender::SendH264(Packet* pkt) {
  const Site& site = _profile.places.sendH264;
  if (!pkt || !pkt->Data()) {
    const char* both = "!pkt || !pkt->Data()";
    Failure(site, _profile.detailed ? both : !pkt ? "!pkt" : "!pkt->Data()");
    return true;
  }
  if (!AcceptSequence(*pkt)) return true;
  if (!_vid_header_sent && !pkt->IsKey()) return true;

  const Bytes payload = FindFirstSlice(PayloadOf(*pkt));
  constexpr std::size_t ShortestFrame = 5;
  if (_profile.refusesShortFrames && payload.size < ShortestFrame) {
    return Failure(site, "size<5");
  }
  if (!_vid_header_sent && !SendAvcHeader(*pkt)) return false;
  if (!MakeRoom(_vid_buffer, AvcFrameHeaderSize + payload.size)) {
    return Failure(site, "!SendBufferCheck(_vid_buffer, RtmpHeaderSize + size + 9, true)");
  }
  unsigned char header[AvcFrameHeaderSize];
  WriteAvcFrameHeader(header, pkt->IsKey(), payload.size);
  return SendFrame(MessageType::Video, _vid_buffer, sync::Load(_vcopy), {header, sizeof header},
                   payload, *pkt);
}

bool MediaSender::SendAvcHeader(const Packet& pkt) {
  const Site& site = _profile.places.sendH264;
  // Set first: whatever fails below is not tried again on this session.
  _vid_header_sent = true;
  IMedia* media = pkt.Media();
  if (!media) return Failure(site, "!media");

  unsigned char* pps = nullptr;
  unsigned char* sps = nullptr;
  unsigned int ppsSize = 0;
  unsigned int spsSize = 0;
  if (!media->Get("pps", pps) || !media->GetIntT("ipps", ppsSize) || !media->Get("sps", sps) ||
      !media->GetIntT("isps", spsSize)) {
    return false;
  }
  if (!sps || spsSize < MinSpsSize || spsSize > MaxParameterSetSize) {
    return Failure(site, "!sps || isps < 4 || isps > 65535", "isps=", spsSize);
  }
  if (!pps || ppsSize > MaxParameterSetSize) {
    return Failure(site, "!pps || ipps > 65535", "ipps=", ppsSize);
  }
  // The text names the room that was once reserved whatever the parameter sets needed.
  if (!MakeRoom(_vid_buffer, AvcSequenceHeaderSize(spsSize, ppsSize))) {
    return Failure(site, "!SendBufferCheck(_vid_buffer, RtmpHeaderSize + 64, true)");
  }
  Clear(_vid_buffer);
  const std::size_t size =
      WriteAvcSequenceHeader(_vid_buffer->Body(), {sps, spsSize}, {pps, ppsSize});
  if (_profile.detailed) Line(Colour::Cyan, site) << "Send sps pps";
  const bool sent = SendBody(MessageType::Video, _vid_buffer, size, 0);
  if (!_profile.detailed) return sent;
  if (!sent) Failure(site, "!ret", "send pps sps failed");
  Report(sent ? "rtmp_send_data_success" : "rtmp_send_data_fail");
  return sent;
}

// ---- AAC ----------------------------------------------------------------------------------------

bool MediaSender::SendAAC(Packet* pkt) {
  const Site& site = _profile.places.sendAac;
  if (!pkt || !pkt->Data()) {
    Failure(site, pkt ? "!pkt->Data()" : "!pkt");
    return true;
  }
  _counters.s_last_aud_seq = pkt->Sequence();
  if (!_aud_header_sent && !SendAacHeader(*pkt)) return false;

  const Bytes frame = PayloadOf(*pkt);
  if (_adts_len < 0 || static_cast<std::size_t>(_adts_len) > frame.size) {
    return Failure(site, "_adts_len < 0 || _adts_len > size", "_adts_len=", _adts_len,
                   ",size=", pkt->Size());
  }
  if (!MakeRoom(_aud_buffer, AacFrameHeaderSize + frame.size)) {
    return Failure(site, "!SendBufferCheck(_aud_buffer, RtmpHeaderSize + size + 2, true)");
  }
  const auto skip = static_cast<std::size_t>(_adts_len);
  unsigned char header[AacFrameHeaderSize];
  WriteAacFrameHeader(header);
  return SendFrame(MessageType::Audio, _aud_buffer, sync::Load(_acopy), {header, sizeof header},
                   {frame.data + skip, frame.size - skip}, *pkt);
}

bool MediaSender::SendAacHeader(const Packet& pkt) {
  const Site& site = _profile.places.sendAac;
  AacFormat format;
  // Set first: whatever fails below is not tried again on this session.
  _aud_header_sent = true;
  IMedia* media = pkt.Media();
  if (!media) return Failure(site, "!media");
  if (!media->GetIntT("adtslen", _adts_len) || !media->GetIntT("profile", format.profile) ||
      !media->GetIntT("channel", format.channels) || !media->GetIntT("rate", format.rate)) {
    return false;
  }
  if (!MakeRoom(_aud_buffer, AacSequenceHeaderSize)) {
    return Failure(site, "!SendBufferCheck(_aud_buffer, RtmpHeaderSize + 8, true)");
  }
  Clear(_aud_buffer);
  const std::size_t size = WriteAacSequenceHeader(_aud_buffer->Body(), format);
  if (_profile.detailed) Line(Colour::Cyan, site) << "send audseqheader";
  return SendBody(MessageType::Audio, _aud_buffer, size, 0);
}

}  // namespace nimbo::plugin::rtmp
