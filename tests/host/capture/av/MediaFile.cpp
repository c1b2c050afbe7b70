#include "tests/host/capture/av/MediaFile.h"

#include <cstdlib>

namespace nimbo::test {

bool Ffmpeg(const std::string& arguments) {
  return std::system(("ffmpeg -nostdin -v fatal -y " + arguments).c_str()) == 0;
}

bool WriteMedia(const std::string& path, const std::string& format, int pictures,
                const std::string& options) {
  return Ffmpeg("-f lavfi -i testsrc2=s=320x180:r=25 -f lavfi -i sine=r=44100 -map 0 -map 1 -t " +
                std::to_string(pictures / 25.0) +
                " -ac 2 -c:v libx264 -pix_fmt yuv420p -g 12 -bf 0 -threads 1 -flags +global_header "
                "-c:a aac " +
                options + " -f " + format + " \"" + path + "\"");
}

}  // namespace nimbo::test
