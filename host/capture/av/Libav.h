#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "common/Status.h"
#include "host/capture/H264.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/display.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

/// Ownership of libav's objects as types, and what its C macros would say in C++.

namespace nimbo::capture::av {

/// Deletes through one of libav's functions that take the address of the pointer.
template <auto Free>
struct FreeByAddress {
  template <class T>
  void operator()(T* object) const {
    Free(&object);
  }
};
/// Deletes through one of libav's functions that take the pointer.
template <auto Free>
struct FreeByPointer {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};

using FramePtr = std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>>;
using PacketPtr = std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>>;
using CodecPtr = std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>>;
using ParametersPtr = std::unique_ptr<AVCodecParameters, FreeByAddress<avcodec_parameters_free>>;
using InputPtr = std::unique_ptr<AVFormatContext, FreeByAddress<avformat_close_input>>;
using FilterPtr = std::unique_ptr<AVBSFContext, FreeByAddress<av_bsf_free>>;
using ResamplerPtr = std::unique_ptr<SwrContext, FreeByAddress<swr_free>>;
using ScalerPtr = std::unique_ptr<SwsContext, FreeByPointer<sws_freeContext>>;
using SampleFifoPtr = std::unique_ptr<AVAudioFifo, FreeByPointer<av_audio_fifo_free>>;

/// Options on their way to libav.
class Dictionary {
 public:
  Dictionary() = default;
  Dictionary(const Dictionary&) = delete;
  Dictionary& operator=(const Dictionary&) = delete;
  ~Dictionary() { av_dict_free(&_entries); }

  void Set(const char* key, const char* value) { av_dict_set(&_entries, key, value, 0); }
  /// For the functions that take the entries that they know and leave the others.
  AVDictionary** Address() noexcept { return &_entries; }
  /// The keys, joined by ", "; empty when there is none.
  std::string Keys() const;

 private:
  AVDictionary* _entries = nullptr;
};

/// What a packet holds.
inline ByteSpan BytesOf(const AVPacket& packet) {
  return {packet.data, static_cast<std::size_t>(packet.size)};
}

/// libav's words for one of its error codes.
std::string ErrorText(int code);
/// What a call of libav gave: a failure, with its text, where that is negative.
Status StatusOf(int result);

constexpr AVRational NanosecondBase = {1, 1000000000};

}  // namespace nimbo::capture::av
