#pragma once

#include "nimbo/base/param.h"
#include "nimbo/base/reference.h"

namespace nimbo::stream {

/// What a stream carries. Never changes once it was published, so any thread may read it.
///
/// H.264: "sps", "pps" (`unsigned char*`, NAL units without start codes), "isps", "ipps" (their
/// lengths in bytes), "w", "h" (pixels). AAC: "adtslen" (bytes of ADTS header in front of each
/// frame), "profile" (as in that header: 1 is LC), "channel" (count), "rate" (Hz).
class NIMBO_API IMedia : public base::IParam, public base::Reference {
 public:
  /// [any] The codec's name ("h264", "aac"); lives as long as the media.
  virtual const char* Codec() const = 0;

 protected:
  ~IMedia() override;
};

}  // namespace nimbo::stream
