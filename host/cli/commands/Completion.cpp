#include "host/cli/commands/Completion.h"

#include <cstring>
#include <vector>

#include "host/cli/commands/OptionList.h"
#include "host/text/Text.h"

namespace nimbo::cli {

namespace {

using text::Joined;

/// What `described`, an option or a subcommand, is for, on one line.
template <class Described>
std::string AboutOf(const Described& described) {
  std::string line;
  for (const char character : described.get_description()) {
    const bool blank = character == '\n' || character == ' ';
    if (!blank || (!line.empty() && line.back() != ' ')) line += blank ? ' ' : character;
  }
  return line;
}

/// `text` with a backslash in front of each of `characters`.
std::string Escaped(const std::string& text, const char* characters) {
  std::string escaped;
  for (const char character : text) {
    if (std::strchr(characters, character)) escaped += '\\';
    escaped += character;
  }
  return escaped;
}

/// `text` within single quotes, where a shell takes nothing for its own; `quote` stands for one.
std::string Quoted(const std::string& text, const char* quote) {
  std::string quoted;
  for (const char character : text) {
    if (character == '\'') {
      quoted += quote;
    } else {
      quoted += character;
    }
  }
  return "'" + quoted + "'";
}

std::string ZshQuoted(const std::string& text) { return Quoted(text, "'\\''"); }

/// What zsh's _arguments is told of the options of `app`, each on a line.
std::string ZshOptions(const CLI::App& app) {
  std::string lines;
  for (const auto* option : Options(app)) {
    for (const auto& name : Names(*option)) {
      std::string told = "*" + name + "[" + Escaped(AboutOf(*option), "[]:\\") + "]";
      if (TakesValue(*option)) told += ":" + Escaped(TypeOf(*option), ":\\") + ":_files";
      lines += " \\\n      " + ZshQuoted(told);
    }
  }
  return lines;
}

std::string FishOptions(const CLI::App& app, const std::string& condition) {
  std::string lines;
  for (const auto* option : Options(app)) {
    lines += "complete -c nimbo-host" + condition;
    for (const auto& name : option->get_snames()) lines += " -s " + name;
    for (const auto& name : option->get_lnames()) lines += " -l " + name;
    if (TakesValue(*option)) lines += " -r";
    lines += " -d " + Quoted(Escaped(AboutOf(*option), "\\"), "\\'") + "\n";
  }
  return lines;
}

}  // namespace

std::string BashCompletion(const CLI::App& program) {
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

std::string ZshCompletion(const CLI::App& program) {
  std::string subcommands, choices;
  for (const auto* sub : Subcommands(program)) {
    const auto told = sub->get_name() + ":" + Escaped(AboutOf(*sub), ":\\");
    subcommands += "      " + ZshQuoted(told) + "\n";
    choices +=
        "    " + sub->get_name() + ") _arguments" + ZshOptions(*sub) + " '*:file:_files' ;;\n";
  }
  return "#compdef nimbo-host\n"
         "# Completes the command line of nimbo-host in zsh.\n"
         "_nimbo_host() {\n"
         "  local state line\n"
         "  local -a subcommands=(\n" +
         subcommands + "  )\n  _arguments -C" + ZshOptions(program) +
         " \\\n      '1: :->subcommand' '*:: :->rest'\n"
         "  case $state in\n"
         "    subcommand) _describe subcommand subcommands; return ;;\n"
         "    rest) ;;\n"
         "    *) return ;;\n"
         "  esac\n"
         "  case $words[1] in\n" +
         choices +
         "  esac\n"
         "}\n"
         "if [ \"$funcstack[1]\" = _nimbo_host ]; then _nimbo_host; else "
         "compdef _nimbo_host nimbo-host; fi\n";
}

std::string FishCompletion(const CLI::App& program) {
  std::string lines = "# Completes the command line of nimbo-host in fish.\n";
  lines += FishOptions(program, "");
  for (const auto* sub : Subcommands(program)) {
    const auto about = Quoted(Escaped(AboutOf(*sub), "\\"), "\\'");
    lines += "complete -c nimbo-host -n __fish_use_subcommand -f -a " + sub->get_name() + " -d " +
             about + "\n";
    lines += FishOptions(*sub, " -n '__fish_seen_subcommand_from " + sub->get_name() + "'");
  }
  return lines;
}

}  // namespace nimbo::cli
