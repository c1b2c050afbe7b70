#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

#include "host/cli/commands/Graph.h"
#include "host/cli/commands/Subcommand.h"
#include "host/cli/terminal/KeptOutput.h"
#include "host/stream/Builder.h"

namespace nimbo::cli {

namespace {

constexpr char StandardOutput[] = "-";
constexpr char ApplicationName[] = "application";

struct GraphOptions {
  std::string configuration;
  std::string file = StandardOutput;
};

/// What a graph can be written as, by the end of the file's name; without a format the text itself.
constexpr struct {
  const char* suffix;
  const char* format;
} Formats[] = {{".dot", nullptr}, {".svg", "-Tsvg"}, {".png", "-Tpng"}};

const auto* FormatOf(const std::string& file) {
  for (const auto& known : Formats) {
    const std::string suffix = known.suffix;
    if (file.size() > suffix.size() &&
        file.compare(file.size() - suffix.size(), suffix.size(), suffix) == 0) {
      return &known;
    }
  }
  return static_cast<decltype(&Formats[0])>(nullptr);
}

std::string FileFault(const std::string& file) {
  if (file == StandardOutput || FormatOf(file)) return {};
  return "\"" + file + "\" ends in none of .svg, .png and .dot";
}

using FilePtr = std::unique_ptr<FILE, int (*)(FILE*)>;

bool WriteAll(FILE* file, const std::string& text) {
  return file && std::fwrite(text.data(), 1, text.size(), file) == text.size() &&
         std::fflush(file) == 0;
}

Status WriteText(const std::string& path, const std::string& text) {
  const FilePtr file(std::fopen(path.c_str(), "we"), std::fclose);
  if (WriteAll(file.get(), text)) return {};
  return Status::Failed("cannot write \"" + path + "\": " + std::strerror(errno));
}

/// Lets Graphviz's program draw the image. Its input is a file, which needs nobody who feeds it.
Status Draw(const std::string& path, const char* format, const std::string& text) {
  const FilePtr input(std::tmpfile(), std::fclose);
  if (!WriteAll(input.get(), text)) {
    return Status::Failed(std::string("no room for a temporary file: ") + std::strerror(errno));
  }
  std::rewind(input.get());
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, fileno(input.get()), STDIN_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);  // the signals that this program blocks must end that one
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  const std::string output = "-o" + path;
  const char* arguments[] = {"dot", format, output.c_str(), nullptr};
  pid_t child = -1;
  const int error = posix_spawnp(&child, arguments[0], &files, &attributes,
                                 const_cast<char* const*>(arguments), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  if (error != 0) {
    return Status::Failed(std::string("cannot run Graphviz's program \"dot\": ") +
                          std::strerror(error) +
                          "; install graphviz, or write the text with -o FILE.dot");
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  if (status == 0) return {};
  return Status::Failed("\"dot\" could not write \"" + path + "\"");
}

int Run(const GraphOptions& options) {
  KeptOutput output;
  auto* application = stream::CreateApplication(ApplicationName, options.configuration);
  if (!application) return Failed;  // which was told
  const std::string text = GraphText(*application);
  application->Release();
  if (options.file == StandardOutput) return output.Write(text) ? Succeeded : Failed;
  const char* format = FormatOf(options.file)->format;
  return ExitCodeOf(format ? Draw(options.file, format, text) : WriteText(options.file, text));
}

}  // namespace

void AddGraph(CLI::App& program, const Choose& chosen) {
  const auto options = std::make_shared<GraphOptions>();
  auto* graph = program.add_subcommand("graph", "Draw the pipelines of a configuration text");
  graph->add_option("CONFIG", options->configuration, "What the shell's \"create\" takes")
      ->required();
  graph
      ->add_option(
          "-o,--output", options->file,
          "Write this file: an image (.svg, .png), which takes Graphviz's program dot, or\n"
          "Graphviz's text (.dot); \"-\" is that text on standard output")
      ->check(FileFault)
      ->capture_default_str();
  graph->footer(
      "Everything is built and nothing opened; what elements print goes to standard error.\n"
      "Dashed ports are not linked; dotted lines are ways inside an element.\n"
      "Exit codes: 0 drawn, 1 the text is wrong or the file cannot be written, 2 wrong usage.\n"
      "\n"
      "Examples:\n"
      "  nimbo-host graph 'shm-source:connect={pv:h264-0}+fifofilter+RingSink'\n"
      "  nimbo-host graph -o client.svg \\\n"
      "      'shm-source:connect={pv:h264-0}+RingSink+rtmp-client:link=all,url=rtmp://h/live/s'");
  graph->final_callback(
      [options, chosen] { chosen([options](ControlLoop&) { return Run(*options); }); });
}

}  // namespace nimbo::cli
