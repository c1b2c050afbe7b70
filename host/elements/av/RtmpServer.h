#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "common/Status.h"
#include "host/capture/AbortEvent.h"
#include "nimbo/base/thread.h"
#include "nimbo/stream/service.h"
#include "sync/Mutex.h"

struct AVIOContext;

namespace nimbo::stream {

/// The service "rtmp-server": takes one publisher at a time and records what it sends as it is,
/// then listens again. Properties: "addr", the RTMP address to listen on; "file", the path of the
/// recording in FLV, which gets "-2", "-3", ... in front of its suffix for further publishers;
/// "packets" and "bytes", recorded since Open.
class RtmpServer final : public Service {
 public:
  RtmpServer();
  /// [control] Takes the service down.
  ~RtmpServer() override;

  /// False, with one line, when nobody could publish to the address.
  bool Open() override;
  /// Ends a recording under way.
  bool Close() override;

  bool SetAddress(const char* address);
  std::string GetAddress() const;
  bool SetFile(const char* path);
  std::string GetFile() const;
  unsigned int GetPackets() const { return _packets; }
  unsigned long long GetBytes() const { return _bytes; }

  /// [control] Registers the class.
  static void Register();

 private:
  void Run();
  /// Waits for the next publisher, which the caller closes. Fails when there was none.
  nimbo::Result<AVIOContext*> Accept(const std::string& address);
  void Record(AVIOContext& publisher, const std::string& path);
  bool ReadWhole(AVIOContext& publisher, unsigned char* to, std::size_t size);
  static int Interrupted(void* self);

  mutable sync::Mutex _mutex;
  std::string _address GUARDED_BY(_mutex);
  std::string _file GUARDED_BY(_mutex);
  std::atomic<unsigned int> _packets{0};
  std::atomic<unsigned long long> _bytes{0};
  capture::AbortEvent _closing;
  std::int64_t _deadline = 0;  ///< of the server's thread: when a silent publisher is given up
  base::Thread _thread;
};

}  // namespace nimbo::stream
