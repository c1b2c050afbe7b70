#include <cstdio>
#include <string>
#include <vector>

#include "host/cli/commands/Subcommand.h"
#include "host/text/Text.h"

namespace nimbo::cli {

namespace {

using text::Joined;

/// Those that the help shows, too.
std::vector<const CLI::App*> Subcommands(const CLI::App& program) {
  return program.get_subcommands([](const CLI::App* sub) { return !sub->get_group().empty(); });
}

/// The options of `app`; of a subcommand, those beyond its help.
std::vector<const CLI::Option*> Options(const CLI::App& app) {
  return app.get_options([&app](const CLI::Option* option) {
    return !app.get_parent() || option != app.get_help_ptr();
  });
}

bool TakesValue(const CLI::Option& option) { return option.get_items_expected_min() > 0; }
bool Repeats(const CLI::Option& option) { return option.get_items_expected_max() > 1; }

std::vector<std::string> Names(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const auto& name : option.get_snames()) names.push_back("-" + name);
  for (const auto& name : option.get_lnames()) names.push_back("--" + name);
  return names;
}

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

/// The value of an option as the help calls it, without what checks it.
std::string TypeOf(const CLI::Option& option) {
  const auto name = option.get_type_name();
  return name.substr(0, name.find(':'));
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
  std::string page = ".TH NIMBO\\-HOST 1 \"\" \"pluginrtmp " NIMBO_VERSION
                     "\" \"User Commands\"\n"
                     ".SH NAME\nnimbo\\-host \\- run publishing plug\\-ins on any Linux machine\n"
                     ".SH SYNOPSIS\n.B nimbo\\-host\n[\\fIOPTION\\fR]... \\fISUBCOMMAND\\fR "
                     "[\\fIARGUMENT\\fR]...\n.SH OPTIONS\n" +
                     OptionEntries(program) + ".SH SUBCOMMANDS\n";
  for (const auto* sub : Subcommands(program)) page += SubcommandEntry(*sub);
  return page;
}

/// A completion of the command line for bash: subcommands and options; file names for all else.
std::string Completion(const CLI::App& program) {
  std::vector<std::string> subcommands;
  std::vector<std::string> taking;  // "SUBCOMMAND:OPTION" of those that a value follows
  std::string choices;
  const auto add = [&](const CLI::App& app, const char* place, std::vector<std::string> words) {
    for (const auto* option : Options(app)) {
      for (const auto& name : Names(*option)) {
        words.push_back(name);
        if (TakesValue(*option)) taking.push_back(place + (":" + name));
      }
    }
    return words;
  };
  const auto common = add(program, "*", {});
  for (const auto* sub : Subcommands(program)) {
    const auto name = sub->get_name();
    subcommands.push_back(name);
    choices +=
        "    " + name + ") words='" + Joined(add(*sub, name.c_str(), common), " ") + "' ;;\n";
  }
  return "# Completes the command line of nimbo-host in bash.\n"
         "_nimbo_host() {\n"
         "  local word sub= words\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
         "    case $word in " +
         Joined(subcommands, " | ") +
         ") sub=$word; break ;; esac\n"
         "  done\n"
         "  case $sub:${COMP_WORDS[COMP_CWORD - 1]} in " +
         Joined(taking, " | ") +
         ") return ;; esac\n"
         "  case $sub in\n" +
         choices + "    *) words='" + Joined(common, " ") + " " + Joined(subcommands, " ") +
         "' ;;\n"
         "  esac\n"
         "  COMPREPLY=($(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\"))\n"
         "}\n"
         "complete -o default -F _nimbo_host nimbo-host\n";
}

}  // namespace

void AddAbout(CLI::App& program, const Choose&) {
  program.set_version_flag("--version", "nimbo-host " NIMBO_VERSION, "Print the version and exit");
  // For building packages; not shown in the help.
  const auto add = [&program](const char* name, std::string (*text)(const CLI::App&)) {
    program.add_subcommand(name)->group("")->final_callback([&program, text] {
      std::fputs(text(program).c_str(), stdout);
      throw CLI::Success();
    });
  };
  add("manual", Manual);
  add("completion", Completion);
}

}  // namespace nimbo::cli
