#pragma once

#include <string>
#include <vector>

namespace nimbo::cli {

/// Rows of text in columns as wide as their widest cell, two blanks apart, each row on a line.
inline std::string Columns(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    if (widths.size() < row.size()) widths.resize(row.size());
    for (std::size_t i = 0; i < row.size(); ++i)
      if (widths[i] < row[i].size()) widths[i] = row[i].size();
  }
  std::string text;
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line.append(widths[i] + 2 - row[i].size(), ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

}  // namespace nimbo::cli
