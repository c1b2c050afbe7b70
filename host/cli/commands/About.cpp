#include <cstdio>
#include <string>
#include <vector>

#include "host/cli/commands/Completion.h"
#include "host/cli/commands/OptionList.h"
#include "host/cli/commands/Subcommand.h"
#include "host/text/Text.h"

namespace nimbo::cli {

namespace {

using text::Joined;

/// `text` with what the manual's language would take for its own escaped.
std::string Roff(const std::string& text) {
  std::string escaped;
  for (const char character : text) {
    if (character == '\\') {
      escaped += "\\e";
      continue;
    }
    if ((character == '.' || character == '\'') && (escaped.empty() || escaped.back() == '\n')) {
      escaped += "\\&";
    }
    if (character == '-') escaped += '\\';
    escaped += character;
  }
  return escaped;
}

std::string OptionEntry(const CLI::Option& option) {
  std::string term;
  if (option.get_positional()) {
    term = "\\fI" + Roff(option.get_name(true)) + "\\fR" + (Repeats(option) ? "..." : "");
  } else {
    std::vector<std::string> names;
    for (const auto& name : Names(option)) names.push_back("\\fB" + Roff(name) + "\\fR");
    term = Joined(names, ", ");
    if (TakesValue(option)) term += " \\fI" + Roff(TypeOf(option)) + "\\fR";
  }
  auto text = Roff(option.get_description()) + ".";
  const auto standard = option.get_default_str();
  if (!standard.empty()) text += " Without it: " + Roff(standard);
  return ".TP\n" + term + "\n" + text + "\n";
}

std::string OptionEntries(const CLI::App& app) {
  std::string text;
  for (const auto* option : Options(app)) text += OptionEntry(*option);
  return text;
}

/// Paragraphs; lines that are set in stay as they are.
std::string Paragraphs(const std::string& text) {
  std::string page = ".PP\n";
  bool verbatim = false;
  for (std::size_t at = 0; at < text.size();) {
    const auto end = std::min(text.find('\n', at), text.size());
    const auto line = text.substr(at, end - at);
    at = end + 1;
    const bool setIn = line.compare(0, 2, "  ") == 0;
    if (setIn != verbatim) page += setIn ? ".nf\n" : ".fi\n";
    verbatim = setIn;
    page += line.empty() ? ".PP\n" : Roff(line) + "\n";
  }
  return page + (verbatim ? ".fi\n" : "");
}

std::string SubcommandEntry(const CLI::App& sub) {
  std::string title = "nimbo-host " + sub.get_name() + " [OPTION]...";
  for (const auto* option : sub.get_options()) {
    if (!option->get_positional()) continue;
    const auto name = option->get_name(true) + (Repeats(*option) ? "..." : "");
    title += option->get_required() ? " " + name : " [" + name + "]";
  }
  return ".SS \"" + Roff(title) + "\"\n" + Roff(sub.get_description()) + ".\n" +
         OptionEntries(sub) + Paragraphs(sub.get_footer());
}

/// The manual page, but for what is not about the command line.
std::string Manual(const CLI::App& program) {
  std::string page = ".TH NIMBO\\-HOST 1 \"" NIMBO_DATE "\" \"pluginrtmp " NIMBO_VERSION
                     "\" \"User Commands\"\n"
                     ".SH NAME\nnimbo\\-host \\- run publishing plug\\-ins on any Linux machine\n"
                     ".SH SYNOPSIS\n.B nimbo\\-host\n[\\fIOPTION\\fR]... \\fISUBCOMMAND\\fR "
                     "[\\fIARGUMENT\\fR]...\n.SH OPTIONS\n" +
                     OptionEntries(program) + ".SH SUBCOMMANDS\n";
  for (const auto* sub : Subcommands(program)) page += SubcommandEntry(*sub);
  return page;
}

}  // namespace

void AddAbout(CLI::App& program, const Choose&) {
  program.set_version_flag("--version", "nimbo-host " NIMBO_VERSION, "Print the version and exit");
  // For building packages; not shown in the help.
  using Text = std::string(const CLI::App&);
  const auto add = [&program](CLI::App& parent, const char* name, Text* text) {
    parent.add_subcommand(name)->group("")->final_callback([&program, text] {
      std::fputs(text(program).c_str(), stdout);
      throw CLI::Success();
    });
  };
  add(program, "manual", Manual);
  CLI::App& completion = *program.add_subcommand("completion")->group("")->require_subcommand(1);
  add(completion, "bash", BashCompletion);
  add(completion, "zsh", ZshCompletion);
  add(completion, "fish", FishCompletion);
}

}  // namespace nimbo::cli
