#include "host/cli/commands/SourceOptions.h"

#include <string>
#include <vector>

namespace nimbo::cli {

namespace {

using Attributes = std::vector<base::Attribute>;

/// An option whose value becomes the attribute `key` of a capture source.
struct Entry {
  const char* name;
  const char* key;
  Attributes publication::PublishOptions::*list;
  const char* type;
  const char* description;
};

constexpr auto Input = &publication::PublishOptions::inputOptions;
constexpr auto Sound = &publication::PublishOptions::audioOptions;

constexpr Entry Entries[] = {
    {"--format", "format", Input, "NAME",
     "libavformat's name of the input's format or device (v4l2, mjpeg, lavfi), where it does not\n"
     "find it out"},
    {"--audio-format", "format", Sound, "NAME", "The same of the --audio input (alsa, pulse)"},
    {"--size", "size", Input, "WxH", "Encode pictures of this size"},
    {"--fps", "fps", Input, "N", "Encode so many pictures a second, if more come"},
    {"--keyint", "keyint", Input, "N", "Encode a key frame every N pictures (those of 2 s)"},
    {"--video-bitrate", "video_bitrate", Input, "RATE",
     "Encode pictures at 2M or 800k bits a second"},
    {"--preset", "preset", Input, "NAME",
     "libx264's effort: ultrafast, superfast (as usual), veryfast ... slow"},
};

/// "KEY=VALUE", a key of letters, digits and underscores.
base::Attribute Split(const std::string& name, const std::string& text) {
  const auto sign = text.find('=');
  const auto wrong =
      text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-");
  if (sign == std::string::npos || sign == 0 || wrong != sign) {
    throw CLI::ValidationError(name, "\"" + text + "\" is no KEY=VALUE: rtsp_transport=tcp is one");
  }
  return {text.substr(0, sign), text.substr(sign + 1)};
}

}  // namespace

void AddSourceOptions(CLI::App& app, publication::PublishOptions& what) {
  app.add_option("--audio", what.audio,
                 "Take the sound from here: an ADTS file that goes with an elementary H.264 file,\n"
                 "or any other input, such as a microphone")
      ->type_name("INPUT");
  const auto addFree = [&](const char* name, Attributes publication::PublishOptions::*list,
                           const char* description) {
    app.add_option_function<std::vector<std::string>>(
           name,
           [&what, list, name](const std::vector<std::string>& texts) {
             for (const auto& text : texts) (what.*list).push_back(Split(name, text));
           },
           description)
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false);
  };
  addFree(
      "--input-option", Input,
      "An option of the input for libavformat, such as rtsp_transport=tcp, video_size=1280x720\n"
      "or input_format=mjpeg; repeatable");
  addFree("--audio-option", Sound, "The same for the --audio input");
  for (const Entry& entry : Entries) {
    app.add_option_function<std::string>(
           entry.name,
           [&what, &entry](const std::string& value) {
             (what.*entry.list).emplace_back(entry.key, value);
           },
           entry.description)
        ->type_name(entry.type);
  }
  app.add_flag("--silence", what.silence,
               "Silence where the input has no sound, for platforms that refuse pictures alone");
  app.add_flag_callback(
      "--keep", [&what] { what.keep = "true"; },
      "Open a live input again whenever it ends, and show a still picture\n"
      "meanwhile (as usual where the live client can be taken)");
  app.add_flag_callback(
         "--no-keep", [&what] { what.keep = "false"; }, "A live input that ends, ends the program")
      ->excludes("--keep");
  app.add_option("--slate", what.slate, "The picture that is shown while a live input is away")
      ->type_name("FILE")
      ->check(CLI::ExistingFile)
      ->excludes("--no-keep");
  // Whose sound that is, is known once all options are.
  app.add_option("--audio-bitrate", what.audioBitRate, "Encode sound at 128k or 64k bits a second")
      ->type_name("RATE");
}

}  // namespace nimbo::cli
