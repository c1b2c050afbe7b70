#include "host/cli/terminal/LineEditor.h"

#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cwchar>

#include "host/cli/terminal/Table.h"

namespace nimbo::cli {

namespace {

constexpr int HistorySize = 500;

/// What all texts begin with.
std::string CommonStart(const std::vector<std::string>& texts) {
  auto common = texts.front();
  for (const auto& text : texts) {
    const auto end = std::mismatch(common.begin(), common.end(), text.begin(), text.end());
    common.erase(end.first, common.end());
  }
  return common;
}

}  // namespace

LineEditor::LineEditor(std::string prompt, ControlLoop& loop, Complete complete)
    : _prompt(std::move(prompt)),
      _loop(loop),
      _complete(std::move(complete)),
      _screen([this] { return Erase(); }, [this] { el_set(_editor.get(), EL_REFRESH); }),
      _terminal(fdopen(dup(_screen.Terminal()), "w"), std::fclose),
      _editor(nullptr, el_end),
      _history(history_init(), history_end) {
  std::setlocale(LC_CTYPE, "");
  _editor.reset(el_init("nimbo-host", stdin, _terminal.get(), _terminal.get()));
  auto* editor = _editor.get();
  el_set(editor, EL_CLIENTDATA, this);
  el_set(editor, EL_PROMPT, &LineEditor::Prompt);
  el_set(editor, EL_EDITOR, "emacs");
  el_set(editor, EL_SIGNAL, 0);
  el_set(editor, EL_GETCFN, &LineEditor::GetCharacter);
  el_wset(editor, EL_ADDFN, L"complete", L"Complete the word", &LineEditor::CompleteWord);
  el_set(editor, EL_BIND, "^I", "complete", nullptr);
  HistEvent event;
  history(_history.get(), &event, H_SETSIZE, HistorySize);
  history(_history.get(), &event, H_SETUNIQUE, 1);
  el_set(editor, EL_HIST, history, _history.get());
}

LineEditor::Result LineEditor::Read(std::string& line) {
  _signalled = false;
  int length = 0;
  el_resize(_editor.get());  // the terminal may have got another size
  const char* text = el_gets(_editor.get(), &length);
  _screen.Hide(true);
  if (_signalled) {
    el_reset(_editor.get());
    std::fputs("\n", _terminal.get());
    std::fflush(_terminal.get());
    return Result::Signal;
  }
  if (!text || length <= 0) return Result::End;
  line.assign(text, static_cast<std::size_t>(length));
  while (!line.empty() && line.back() == '\n') line.pop_back();
  HistEvent event;
  if (!line.empty()) history(_history.get(), &event, H_ENTER, line.c_str());
  return Result::Line;
}

LineEditor& LineEditor::Of(EditLine* editor) {
  void* self = nullptr;
  el_get(editor, EL_CLIENTDATA, &self);
  return *static_cast<LineEditor*>(self);
}

char* LineEditor::Prompt(EditLine* editor) { return Of(editor)._prompt.data(); }

/// Waits for the next character of the terminal: 1 when there is one, 0 at the end, -1 on a signal.
int LineEditor::GetCharacter(EditLine* editor, wchar_t* character) {
  auto& self = Of(editor);
  std::mbstate_t state{};
  while (true) {
    self._screen.Show(true);
    const auto woken = self._loop.Wait(STDIN_FILENO, Clock::time_point::max(), &self._screen);
    if (woken == ControlLoop::Woken::Signal) {
      self._signalled = true;
      return -1;
    }
    char byte;
    if (read(STDIN_FILENO, &byte, 1) != 1) return 0;
    const auto size = std::mbrtowc(character, &byte, 1, &state);
    if (size == static_cast<std::size_t>(-2)) continue;  // the character has more bytes
    if (size == static_cast<std::size_t>(-1)) {
      state = {};
      continue;
    }
    return 1;
  }
}

unsigned char LineEditor::CompleteWord(EditLine* editor, int) {
  auto& self = Of(editor);
  const auto* info = el_line(editor);
  const std::string line(info->buffer, info->cursor);
  const auto word = line.substr(line.find_last_of(" \t") + 1);
  const auto candidates = self._complete(line);
  if (candidates.empty()) return CC_REFRESH_BEEP;
  auto insertion = CommonStart(candidates).substr(word.size());
  if (candidates.size() == 1) insertion += ' ';
  if (!insertion.empty()) {
    el_insertstr(editor, insertion.c_str());
    return CC_REFRESH;
  }
  std::vector<std::vector<std::string>> rows;
  rows.reserve(candidates.size());
  for (const auto& candidate : candidates) rows.push_back({candidate});
  self._screen.Hide(true);
  std::fputs(("\n" + Columns(rows)).c_str(), self._terminal.get());
  std::fflush(self._terminal.get());
  return CC_REDISPLAY;
}

std::string LineEditor::Erase() const {
  const auto* info = el_line(_editor.get());
  const auto before = _prompt.size() + static_cast<std::size_t>(info->cursor - info->buffer);
  const auto rows = before / _screen.Columns();
  return (rows > 0 ? "\033[" + std::to_string(rows) + "A" : "") + "\r\033[J";
}

}  // namespace nimbo::cli
