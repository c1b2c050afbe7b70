#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/Held.h"
#include "nimbo/stream/packet.h"
#include "plugin/live/LagMeter.h"
#include "plugin/live/StreamFormat.h"
#include "plugin/session/RtmpSession.h"

namespace nimbo::plugin::live {

/// What its owner may be told to say and do.
struct LiveSettings {
  int chunk = 4096;       ///< bytes of the chunks that messages are cut into
  bool metadata = true;   ///< what the streams are is told in a message of its own
  bool enhanced = false;  ///< codecs that messages name by a FourCC are offered and sent
};

/// A publishing session and what goes over it: every stream's configuration when it begins and when
/// it changes, its frames as they come, and times that begin at 0 with the session.
///
/// Packets are sent by one thread at a time. [sending] Connecting happens on that thread, or on the
/// control thread while nothing is sent. What properties show may be read by any thread.
class LiveSender {
 public:
  /// What became of a packet.
  enum class Outcome {
    Sent,
    Dropped,  ///< it cannot be sent, or has nothing to send; the session goes on
    Failed,   ///< the session is lost
  };

  /// Opens a fresh session to `url`. A step that fails writes an explanation and a failure line,
  /// and leaves no session.
  bool Connect(const std::string& url, const LiveSettings& settings);
  /// Ends the session, if there is one.
  void Disconnect();
  /// [sending] Publishes one packet.
  Outcome Send(const stream::Packet& packet, stream::IMedia& media);
  /// [sending] Whether the server has asked for a new connection.
  bool Redirected() const { return _rtmp.AsksReconnect(); }
  /// [sending] The address to connect to in place of `url`, at the server's request; empty when it
  /// has made none.
  std::string TakeRedirection(const std::string& url);
  /// [control] Nothing was said before: for a fresh Open.
  void Forget() { _explained.clear(); }

  /// [any]
  void Cancel() { _rtmp.Cancel(); }
  void Resume() { _rtmp.Resume(); }
  bool Connected() const noexcept { return _rtmp.Connected(); }
  /// True while pictures are dropped because one before them was lost.
  bool Lost() const noexcept { return _lost.load(std::memory_order_relaxed); }
  unsigned int Dropped() const noexcept { return _dropped.load(std::memory_order_relaxed); }
  /// Bytes that the server has acknowledged, and milliseconds that it is late.
  unsigned long long Acknowledged() { return _rtmp.Progress().acknowledged; }
  int Lag() { return _lag.Lag(LagMeter::Clock::now(), _rtmp.Progress()); }
  /// [session] Whether there is a connection.
  bool IsConnected() const { return _rtmp.IsConnected(); }

 private:
  /// A stream of the session.
  struct Track {
    Held<stream::IMedia> media;            ///< of the packet before; null: none yet
    std::optional<StreamFormat> format;    ///< what it tells; none: it does not describe the stream
    std::vector<unsigned char> announced;  ///< the configuration that the server knows
    bool begun = false;                    ///< something was announced
    std::uint32_t sequence = 0;            ///< of the packet before
    bool numbered = false;
  };

  bool Steps();
  bool AnnounceChunkSize(int size);
  bool Follow(Track& track, stream::IMedia& media, LiveCodec codec);
  /// Whether the packet can be decoded behind those that were sent.
  bool Continues(Track& track, const stream::Packet& packet);
  /// Tells the server of the stream, and of its configuration, unless it knows both.
  bool Announce(Track& track, std::uint32_t time);
  bool SendMetadata(std::uint32_t time);
  bool SendPicture(const Track& track, const stream::Packet& packet, std::uint32_t time);
  bool SendSound(const Track& track, const stream::Packet& packet, std::uint32_t time);
  std::uint32_t TimeOf(const stream::Packet& packet);
  /// Sends `head` and `tail`, one behind the other, as one message.
  bool SendMessage(MessageType type, std::uint32_t time, Bytes head, Bytes tail);
  Outcome Drop();
  /// One line that says why a step failed, or warns, unless the same was said before.
  void Explain(const std::string& why);
  void WarnOfCodec(LiveCodec codec);

  RtmpSession _rtmp;
  LiveSettings _settings;
  Track _video;
  Track _audio;
  std::optional<std::int64_t> _origin;  ///< decode time, in ms, at which the session's time is 0
  std::vector<unsigned char> _body;     ///< the picture that is being sent
  std::vector<unsigned char> _room;     ///< a message with room for librtmp's header in front
  std::string _explained;               ///< what was said last
  bool _refused = false;                ///< that a codec cannot be sent was said
  std::atomic<bool> _lost{false};
  std::atomic<unsigned int> _dropped{0};
  LagMeter _lag;
};

}  // namespace nimbo::plugin::live
