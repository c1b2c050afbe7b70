// Writes down, in their order, the calls that the plug-in makes to librtmp and to the switch of the
// floating-point unit. Calls that librtmp makes to itself are left out.
//
//   TAPE=FILE LD_PRELOAD=libtape-recorder.so PROGRAM
//
// appends one line "THREAD CALL" for each to FILE. It needs nothing of the host, so that it can be
// preloaded on a device too. See tools/tape.
#include <dlfcn.h>
#include <fcntl.h>
#include <librtmp/rtmp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>

#include "nimbo/base/platform.h"

namespace {

bool IsPlugin(const void* caller) {
  Dl_info library{};
  return dladdr(caller, &library) != 0 && std::strstr(library.dli_fname, "libpluginrtmp.so");
}

void Write(const void* caller, const char* function, const std::string& arguments) {
  static const char* const path = std::getenv("TAPE");
  static const int tape = path ? open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644) : -1;
  if (tape < 0 || !IsPlugin(caller)) return;
  // One write a line, so that the lines of two threads never mix.
  const std::string line = std::to_string(gettid()) + " " + function + arguments + "\n";
  if (write(tape, line.data(), line.size()) < 0) std::abort();
}

std::string Values(std::initializer_list<long> values) {
  std::string text;
  for (const long value : values) text += (text.empty() ? "(" : ", ") + std::to_string(value);
  return text + ")";
}

std::string TypeChannelSize(const RTMPPacket* packet) {
  // The length of a command depends on the server's address.
  if (packet->m_packetType == RTMP_PACKET_TYPE_INVOKE) {
    return Values({packet->m_packetType, packet->m_nChannel});
  }
  return Values({packet->m_packetType, packet->m_nChannel, static_cast<long>(packet->m_nBodySize)});
}

}  // namespace

// One function in front of another: a line for the call, with what is told of its arguments, then
// the call itself.
#define RECORD(result, name, parameters, arguments, told)                                     \
  extern "C" __attribute__((visibility("default"))) result name parameters {                  \
    Write(__builtin_return_address(0), #name, told);                                          \
    static const auto next = reinterpret_cast<result(*) parameters>(dlsym(RTLD_NEXT, #name)); \
    return next arguments;                                                                    \
  }

RECORD(void, vfp_enable, (), (), "")
RECORD(void, vfp_disable, (), (), "")
RECORD(RTMP*, RTMP_Alloc, (), (), "")
RECORD(void, RTMP_Init, (RTMP * r), (r), "")
RECORD(void, RTMP_Free, (RTMP * r), (r), "")
RECORD(int, RTMP_SetupURL, (RTMP * r, char* url), (r, url), "")
RECORD(void, RTMP_EnableWrite, (RTMP * r), (r), "")
RECORD(int, RTMP_Connect, (RTMP * r, RTMPPacket* p), (r, p), "")
RECORD(int, RTMP_Connect1, (RTMP * r, RTMPPacket* p), (r, p), "")
RECORD(int, RTMP_ConnectStream, (RTMP * r, int seek), (r, seek), "")
RECORD(int, RTMP_ReadPacket, (RTMP * r, RTMPPacket* p), (r, p), "")
RECORD(int, RTMP_ClientPacket, (RTMP * r, RTMPPacket* p), (r, p), Values({p->m_packetType}))
RECORD(int, RTMP_IsConnected, (RTMP * r), (r), "")
RECORD(int, RTMP_SendPacket, (RTMP * r, RTMPPacket* p, int queue), (r, p, queue),
       TypeChannelSize(p))
RECORD(int, RTMP_SendCtrl, (RTMP * r, short event, unsigned value, unsigned time),
       (r, event, value, time), Values({event, value, time}))
RECORD(void, RTMP_DeleteStream, (RTMP * r), (r), "")
RECORD(void, RTMP_Close, (RTMP * r), (r), "")
RECORD(int, RTMPPacket_Alloc, (RTMPPacket * p, uint32_t size), (p, size), Values({size}))
RECORD(void, RTMPPacket_Free, (RTMPPacket * p), (p), "")
// What stands in place of RTMP_SendPacket where nothing is copied.
RECORD(ssize_t, sendmsg, (int socket, const msghdr* message, int flags), (socket, message, flags),
       "")
