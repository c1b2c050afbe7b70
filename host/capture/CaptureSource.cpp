#include "host/capture/CaptureSource.h"

namespace nimbo::capture {

CaptureSource::~CaptureSource() = default;

}  // namespace nimbo::capture
