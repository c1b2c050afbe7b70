#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "common/Held.h"
#include "nimbo/base/class.h"
#include "nimbo/base/thread.h"
#include "nimbo/stream/application.h"
#include "nimbo/stream/packet_ring.h"
#include "nimbo/stream/service.h"
#include "plugin/element/SharedText.h"
#include "plugin/rtmp/MediaSender.h"
#include "sync/Mutex.h"

namespace nimbo::plugin::rtmp {

/// A stand-alone publisher: builds its own capture application from "cfg", reads video and audio
/// from that application's rings in a thread of its own, and pushes them to "addr", interleaved by
/// time stamp. A lost connection is made again for as long as it takes.
///
/// Properties: "addr", "cfg" (write), "rtmp_sts", "rtmp_quality" (read).
///
/// Whoever destroys a pusher has closed it before.
class RtmpStreamPusher : public stream::Service, private MediaSender {
 public:
  RtmpStreamPusher();
  ~RtmpStreamPusher() override;

  /// [control] Connects, builds the capture application, brings it to ready and starts the thread.
  /// When it fails, Close takes back what it has made.
  bool Open() override;
  /// [control] Stops the thread, takes the application down and disconnects.
  bool Close() override;
  /// [control] Puts the capture application into play, and back to ready.
  bool Start() override;
  bool Stop() override;

  /// [control] The address to publish to. A new one counts from the next connection on.
  bool SetUrl(const char* url);
  /// [control] The capture application's configuration text. Counts from the next Open on.
  bool SetCfg(const char* cfg);
  /// [any] Whether the session is connected.
  bool RtmpConnectStatus();
  /// [any] How far the sending lags behind the capture, in percent of the video ring: 0 is caught
  /// up; 100 while frames are being dropped after a gap. 0 without a video ring.
  int RtmpConnectQuality();

 private:
  using Reader = stream::IRing<stream::Packet*>::Reader;

  /// [control] Builds the capture application and attaches the readers. What was made before a
  /// failure stays for Close.
  bool StartAVSource();
  /// [control] Takes the capture application down. True always.
  bool StopAVSource();

  /// The sending of one message under the name that this class's users and log lines know.
  bool SendRtmpPcaket(RTMPPacket* packet, unsigned char type, char* data, unsigned int size,
                      unsigned int timestamp);
  bool Send(RTMPPacket* packet, unsigned char type, char* data, unsigned int size,
            unsigned int timestamp) override {
    return SendRtmpPcaket(packet, type, data, size, timestamp);
  }

  /// The thread's body: pops, chooses, sends and reconnects until `_running` is false.
  bool SendLoop();
  /// [sending] Waits for the reader's next packet. True when it could wait, whatever came.
  static bool Fill(const std::unique_ptr<Reader>& reader, Held<stream::Packet>& slot);
  /// [sending] Sends a packet and gives it back; reconnects when that fails.
  void Push(Held<stream::Packet> chosen);
  /// [sending] What follows a packet that could not be sent.
  void Reconnect();
  /// [sending] Sleeps; Close ends it.
  void Sleep(std::chrono::milliseconds duration);

  std::unique_ptr<stream::Application> _app;
  std::unique_ptr<Reader> _vid_reader;
  std::unique_ptr<Reader> _aud_reader;
  SharedText _url;
  std::string _cfg;
  base::Thread _thread;
  std::atomic<bool> _running{false};

  /// Keeps the ring and `_vid_reader` alive while the quality is read. Taken alone, never while
  /// anything waits.
  sync::Mutex _quality_mutex;
  /// The ring behind `_vid_reader` while it lives, and its size.
  stream::PacketRing* _quality_ring GUARDED_BY(_quality_mutex) = nullptr;
  int _vid_ring_size GUARDED_BY(_quality_mutex) = 0;

  sync::Mutex _sleep_mutex;  ///< taken alone; `_running` becomes false under it
  sync::Condition _sleep_ended;
};

/// [control] Registers the class under `name`, or "RtmpStreamPusher-rtmp-pusher" when that is null.
base::IClass* RegisterRtmpStreamPusher(const char* name);

}  // namespace nimbo::plugin::rtmp
