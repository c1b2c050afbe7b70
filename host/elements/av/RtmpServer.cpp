#include "host/elements/av/RtmpServer.h"

#include <netdb.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "common/FileDescriptor.h"
#include "host/base/Console.h"
#include "host/capture/Monotonic.h"
#include "host/capture/av/Libav.h"
#include "host/capture/av/LibavLog.h"
#include "host/elements/Properties.h"
#include "host/elements/av/RecordingPath.h"

namespace nimbo::stream {

using capture::MonotonicNow;
using capture::NsPerMillisecond;
using capture::NsPerSecond;
using capture::av::Dictionary;
using capture::av::ErrorText;
using capture::av::LogScope;

namespace {

constexpr char ClassName[] = "RtmpServer-rtmp-server";
constexpr char DefaultAddress[] = "rtmp://127.0.0.1:1935/live/stream";
constexpr char DefaultFile[] = "rtmp-server.flv";
constexpr char Scheme[] = "rtmp";
constexpr int DefaultPort = 1935;

constexpr int ThreadPriority = 19;
constexpr int ThreadPolicy = 10;
constexpr int ThreadStack = 512 * 1024;

/// A publisher that is silent for so long is given up.
constexpr std::int64_t Patience = 30 * NsPerSecond;
/// The pause after a connection that came to nothing.
constexpr std::int64_t RetryPause = 200 * NsPerMillisecond;

/// Adobe Flash Video File Format 10.1, annex E: the file header with the size field behind it, and
/// of each tag the header, whose first byte is the type and the next three the size of the data,
/// and the size field behind the data.
constexpr std::size_t FileHeaderSize = 9 + 4;
constexpr std::size_t TagHeaderSize = 11;
constexpr std::size_t TagTrailerSize = 4;
constexpr unsigned char AudioTag = 8;
constexpr unsigned char VideoTag = 9;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, CloseFile>;

/// Tries the address out, because the thread that listens later could only tell the console.
Status CanListen(const std::string& address) {
  std::array<char, 32> scheme = {};
  std::array<char, 256> host = {};
  int port = -1;
  av_url_split(scheme.data(), scheme.size(), nullptr, 0, host.data(), host.size(), &port, nullptr,
               0, address.c_str());
  if (std::strcmp(scheme.data(), Scheme) != 0 || host[0] == '\0') {
    return Status::Failed("an address such as " + std::string(DefaultAddress) + " is needed");
  }
  const std::string service = std::to_string(port < 0 ? DefaultPort : port);
  addrinfo hints = {};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE;
  addrinfo* found = nullptr;
  const int result = getaddrinfo(host.data(), service.c_str(), &hints, &found);
  if (result != 0) return Status::Failed(gai_strerror(result));
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> guard(found, freeaddrinfo);
  const FileDescriptor probe(socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int reuse = 1;
  setsockopt(probe.Get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  const bool bound = bind(probe.Get(), found->ai_addr, found->ai_addrlen) == 0;
  return bound ? Status() : Status::Failed(std::strerror(errno));
}

std::size_t DataSize(const unsigned char* tagHeader) {
  return static_cast<std::size_t>(tagHeader[1]) << 16 |
         static_cast<std::size_t>(tagHeader[2]) << 8 | tagHeader[3];
}

}  // namespace

RtmpServer::RtmpServer()
    : _address(DefaultAddress),
      _file(DefaultFile),
      _thread("rtmp-server", ThreadPriority, ThreadPolicy, ThreadStack) {}

RtmpServer::~RtmpServer() { StatusTakeDown(); }

bool RtmpServer::Open() {
  const std::string address = GetAddress();
  if (const auto listened = CanListen(address); !listened) {
    return Refuse("rtmp-server: cannot listen on ", address, ": ", listened.Why());
  }
  _packets = 0;
  _bytes = 0;
  _closing.Clear();
  if (!_thread.Once([this] { Run(); })) {
    return Refuse("rtmp-server: its thread cannot be started");
  }
  return Service::Open();
}

bool RtmpServer::Close() {
  _closing.Set();
  _thread.Join();
  return Service::Close();
}

bool RtmpServer::SetAddress(const char* address) {
  if (!StatusIsNull()) return Refuse("rtmp-server is open: addr cannot change");
  const sync::Lock lock(_mutex);
  _address = address;
  return true;
}

std::string RtmpServer::GetAddress() const {
  const sync::Lock lock(_mutex);
  return _address;
}

bool RtmpServer::SetFile(const char* path) {
  if (!StatusIsNull()) return Refuse("rtmp-server is open: file cannot change");
  const sync::Lock lock(_mutex);
  _file = path;
  return true;
}

std::string RtmpServer::GetFile() const {
  const sync::Lock lock(_mutex);
  return _file;
}

void RtmpServer::Run() {
  const std::string address = GetAddress();
  const std::string file = GetFile();
  std::string told;
  for (int recordings = 0; !_closing.IsSet();) {
    auto publisher = Accept(address);
    if (publisher) {
      if (!_closing.IsSet()) Record(**publisher, NumberedPath(file, ++recordings));
      avio_close(*publisher);
      told.clear();
      continue;
    }
    if (!_closing.IsSet() && publisher.Why() != told) {
      told = publisher.Why();
      Explain("rtmp-server: a connection came to nothing: ", told);
    }
    _closing.WaitUntil(MonotonicNow() + RetryPause);
  }
}

Result<AVIOContext*> RtmpServer::Accept(const std::string& address) {
  LogScope log;
  Dictionary options;
  options.Set("listen", "1");
  const AVIOInterruptCB interrupt = {Interrupted, this};
  AVIOContext* publisher = nullptr;
  _deadline = 0;
  const int result =
      avio_open2(&publisher, address.c_str(), AVIO_FLAG_READ, &interrupt, options.Address());
  if (result >= 0) return publisher;
  return nimbo::Status::Failed(ErrorText(result) + log.Detail());
}

/// libav's RTMP gives an FLV file, tag by tag; whole tags are written.
void RtmpServer::Record(AVIOContext& publisher, const std::string& path) {
  LogScope log;
  const FilePtr file(std::fopen(path.c_str(), "wbe"));
  if (!file) {
    Refuse("rtmp-server: \"", path, "\" cannot be written: ", std::strerror(errno));
    return;
  }
  Tell(log::Colour::Green, "rtmp-server: a publisher arrived; recording to \"", path, "\"");
  unsigned int packets = 0;
  unsigned long long bytes = 0;
  std::vector<unsigned char> piece(FileHeaderSize);
  bool whole = ReadWhole(publisher, piece.data(), piece.size());
  while (whole) {
    if (std::fwrite(piece.data(), 1, piece.size(), file.get()) != piece.size() ||
        std::fflush(file.get()) != 0) {
      Refuse("rtmp-server: \"", path, "\" cannot be written on: ", std::strerror(errno));
      break;
    }
    bytes += piece.size();
    _bytes += piece.size();
    if (piece[0] == AudioTag || piece[0] == VideoTag) {
      ++packets;
      ++_packets;
    }
    piece.resize(TagHeaderSize);
    whole = ReadWhole(publisher, piece.data(), TagHeaderSize);
    if (!whole) break;
    const std::size_t rest = DataSize(piece.data()) + TagTrailerSize;
    piece.resize(TagHeaderSize + rest);
    whole = ReadWhole(publisher, piece.data() + TagHeaderSize, rest);
  }
  Tell(log::Colour::Green, "rtmp-server: the publisher left after ", packets, " packets; \"", path,
       "\" has ", bytes, " bytes");
}

bool RtmpServer::ReadWhole(AVIOContext& publisher, unsigned char* to, std::size_t size) {
  _deadline = MonotonicNow() + Patience;
  const int wanted = static_cast<int>(size);
  return avio_read(&publisher, to, wanted) == wanted;
}

int RtmpServer::Interrupted(void* self) {
  const auto& server = *static_cast<const RtmpServer*>(self);
  return server._closing.IsSet() || (server._deadline != 0 && MonotonicNow() > server._deadline);
}

void RtmpServer::Register() {
  base::IClass* cl = base::TClass<>::Register<RtmpServer>(
      ClassName, {Setting("addr", &RtmpServer::SetAddress, &RtmpServer::GetAddress,
                          "RTMP address to listen on"),
                  Setting("file", &RtmpServer::SetFile, &RtmpServer::GetFile,
                          "path of the recording, numbered from the second publisher on"),
                  Figure("packets", &RtmpServer::GetPackets, "audio and video packets recorded"),
                  Figure("bytes", &RtmpServer::GetBytes, "bytes recorded")});
  base::Describe(cl, "nimbo-av", "takes one publisher after the other and records what comes");
}

}  // namespace nimbo::stream
