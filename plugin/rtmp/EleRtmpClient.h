#pragma once

#include <cstdint>
#include <string>

#include "nimbo/base/class.h"
#include "nimbo/stream/sink.h"
#include "plugin/element/SharedText.h"
#include "plugin/rtmp/MediaSender.h"
#include "sync/Mutex.h"

namespace nimbo::plugin::rtmp {

/// A pipeline's end that publishes every H.264 and AAC packet delivered to it to one URL. Tells the
/// pipeline of "rtmp_connected", "rtmp_disconnected", "rtmp_send_data_success",
/// "rtmp_send_data_fail", "rtmp_reconnect_success" and "rtmp_reconnect_fail".
///
/// Properties: "url", "vcopy", "acopy" (read, write), "rtmp_sts", "rtmp_quality" (read).
///
/// Whoever destroys an element has closed it before.
class EleRtmpClient : public stream::ISink, private MediaSender {
 public:
  EleRtmpClient();
  ~EleRtmpClient() override;

  /// [control] Connects and makes the send buffers.
  bool Open() override;
  /// [control] Disconnects and frees the buffers.
  bool Close() override;
  /// [control] Stop ends an attempt to connect, and a stalled send soon; Start allows them again.
  bool Start() override;
  bool Stop() override;
  /// [sending] Publishes one packet. When the video's width and height both change, on a fresh
  /// session; when the session is lost, after up to three attempts to make it again, for which the
  /// packet itself is given up. False when the packet is refused or the session stays lost.
  bool ReceivePacket(stream::Packet& packet, void* from) override;

  /// [control] Stores the URL, always; it counts from the next Open or reconnection on. True when
  /// the element is in null status and the URL is not empty.
  bool SetUrl(std::string url);
  /// [any]
  std::string GetUrl() const;
  /// [any] Whether the session is connected.
  bool RtmpConnectStatus();
  /// [any] 1 while frames are being dropped after a gap, else 0.
  int RtmpConnectQuality();

 private:
  friend base::IClass* RegisterEleRtmpClientClass();

  void Report(const char* message) override;
  /// The sending of one message under the name that this class's users and log lines know.
  bool SendRtmpPacket(RTMPPacket* packet, unsigned char type, char* data, unsigned int size,
                      unsigned int timestamp);
  bool Send(RTMPPacket* packet, unsigned char type, char* data, unsigned int size,
            unsigned int timestamp) override {
    return SendRtmpPacket(packet, type, data, size, timestamp);
  }
  /// [sending] Reconnects when both sides of the picture differ from the session's. False when that
  /// fails or the media does not tell its size.
  bool SwitchResolution(stream::IMedia& media) REQUIRES(_mutex);
  /// [sending] What follows a packet that could not be sent; the result of ReceivePacket.
  bool HandleFailure(const stream::Packet& packet, const char* codec) REQUIRES(_mutex);
  /// Counts a packet: the first one sets the counter to its number.
  static void Count(std::int32_t& counter, const stream::Packet& packet);

  SharedText _url;
  /// Held while a packet is handled, and around connecting and disconnecting.
  sync::Mutex _mutex;
  std::int32_t _vid_count GUARDED_BY(_mutex) = -1;
  std::int32_t _aud_count GUARDED_BY(_mutex) = -1;
  std::int32_t _width GUARDED_BY(_mutex) = 1280;
  std::int32_t _height GUARDED_BY(_mutex) = 720;
};

/// [control] Registers the class; the name is not used.
void RegisterEleRtmpClient(const char* name);

}  // namespace nimbo::plugin::rtmp
