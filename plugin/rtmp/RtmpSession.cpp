#include "plugin/rtmp/RtmpSession.h"

#include "plugin/rtmp/SigPipeGuard.h"

namespace nimbo::plugin::rtmp {

bool RtmpSession::Allocate() {
  Free();
  _rtmp = RTMP_Alloc();
  if (!_rtmp) return false;
  RTMP_Init(_rtmp);
  _rtmp->Link.timeout = TimeoutSeconds;
  return true;
}

bool RtmpSession::SetupUrl(const char* url) {
  if (!_rtmp || !url) return false;
  _url = url;
  if (!RTMP_SetupURL(_rtmp, _url.data())) return false;
  return _rtmp->Link.playpath.av_len <= MaxStreamName;
}

void RtmpSession::EnableWrite() {
  if (_rtmp) RTMP_EnableWrite(_rtmp);
}

bool RtmpSession::Connect() {
  if (!_rtmp) return false;
  const SigPipeGuard guard;
  return RTMP_Connect(_rtmp, nullptr) != 0 || Note(false);
}

bool RtmpSession::ConnectStream() {
  if (!_rtmp) return false;
  const SigPipeGuard guard;
  return Note(RTMP_ConnectStream(_rtmp, 0) != 0);
}

void RtmpSession::Close() {
  if (!_rtmp) return;
  const SigPipeGuard guard;
  SigPipeGuard::Suspect();
  RTMP_Close(_rtmp);
  Note(true);
}

void RtmpSession::Free() {
  if (!_rtmp) return;
  // Frees what the session holds besides itself, which RTMP_Free leaves behind.
  Close();
  RTMP_Free(_rtmp);
  _rtmp = nullptr;
  _url.clear();
}

void RtmpSession::Disconnect() {
  if (!_rtmp) return;
  const SigPipeGuard guard;
  // A stream that is live answers at once; one that is not has no connection to wait for.
  if (RTMP_ConnectStream(_rtmp, 0) == 1) {
    Close();
    RTMP_DeleteStream(_rtmp);
  }
  Free();
}

bool RtmpSession::IsConnected() { return _rtmp && RTMP_IsConnected(_rtmp) != 0; }

bool RtmpSession::Send(RTMPPacket& packet, bool queue) {
  if (!_rtmp) return false;
  const SigPipeGuard guard;
  return Note(RTMP_SendPacket(_rtmp, &packet, queue ? 1 : 0) != 0);
}

bool RtmpSession::SendControl(short event, unsigned int value, unsigned int time) {
  if (!_rtmp) return false;
  const SigPipeGuard guard;
  return Note(RTMP_SendCtrl(_rtmp, event, value, time) != 0);
}

void RtmpSession::SetOutChunkSize(int size) {
  if (_rtmp) _rtmp->m_outChunkSize = size;
}

bool RtmpSession::Note(bool result) {
  if (!result) SigPipeGuard::Suspect();
  _connected.store(IsConnected(), std::memory_order_relaxed);
  return result;
}

}  // namespace nimbo::plugin::rtmp
