#pragma once

#include <string>

#include "nimbo/base/class.h"
#include "nimbo/stream/sink.h"
#include "plugin/element/SharedText.h"
#include "plugin/live/LiveSender.h"
#include "sync/Mutex.h"

namespace nimbo::plugin::live {

/// A pipeline's end that publishes every stream delivered to it to one URL as it comes: reordered
/// pictures, any number of slices and parameter sets, any AAC and, where asked for, the codecs of
/// Enhanced RTMP. What a media tells it besides stands in StreamFormat. Tells the pipeline of
/// "rtmp_connected", "rtmp_disconnected", "rtmp_send_data_fail", "rtmp_reconnect_success" and
/// "rtmp_reconnect_fail".
///
/// Properties: "url", "chunk", "metadata", "enhanced" (read, write; they count from the next
/// connection on), "rtmp_sts", "rtmp_quality", "lag", "acknowledged", "dropped" (read).
///
/// Whoever destroys an element has closed it before.
class EleRtmpLive : public stream::ISink {
 public:
  EleRtmpLive();
  ~EleRtmpLive() override;

  /// [control] Connects.
  bool Open() override;
  /// [control] Disconnects.
  bool Close() override;
  /// [control] Stop ends an attempt to connect, and a stalled send soon; Start allows them again.
  bool Start() override;
  bool Stop() override;
  /// [sending] Publishes one packet. When the session is lost, after up to three attempts to make
  /// it again, for which the packet itself is given up. False when the session stays lost.
  bool ReceivePacket(stream::Packet& packet, void* from) override;

  /// [control] Stores the URL, always; it counts from the next Open or reconnection on. True when
  /// the element is in null status and the URL is not empty.
  bool SetUrl(std::string url);
  /// [any]
  std::string GetUrl() const { return _url.Get(); }
  /// [control] Bytes of a chunk, 128 to 65536. False, with one line, for any other text.
  bool SetChunk(const char* text);
  /// [any]
  int GetChunk() const;
  bool RtmpConnectStatus() { return _sender.Connected(); }
  /// 1 while pictures are being dropped after a gap, else 0.
  int RtmpConnectQuality() { return _sender.Lost() ? 1 : 0; }
  /// Milliseconds that the server is late; bytes that it has acknowledged on this connection;
  /// packets that were not sent.
  int GetLag() { return _sender.Lag(); }
  unsigned long long GetAcknowledged() { return _sender.Acknowledged(); }
  unsigned int GetDropped() { return _sender.Dropped(); }

 private:
  friend base::IClass* RegisterEleRtmpLiveClass();

  void Report(const char* message) { SendMessageUp(message, nullptr, nullptr); }
  LiveSettings Settings() const;
  /// [sending] What follows a packet that could not be sent; the result of ReceivePacket.
  bool Recover(const stream::Packet& packet) REQUIRES(_mutex);
  /// [sending] Follows a server that asks for a new connection.
  bool Redirect(const std::string& url) REQUIRES(_mutex);

  SharedText _url;
  bool _metadata = true;  ///< properties: may be written while the sending thread loads them
  bool _enhanced = false;
  int _chunk = LiveSettings().chunk;
  /// Held while a packet is handled, and around connecting and disconnecting.
  sync::Mutex _mutex;
  LiveSender _sender;
};

/// [control] Registers the class; the name is not used.
base::IClass* RegisterEleRtmpLiveClass();

}  // namespace nimbo::plugin::live
