#include "diagnostics.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace idl {
namespace {

char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

// How many letters one has to add, drop or change to come from `a` to `b`, whatever their case.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0]++;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (lower(a[i]) != lower(b[j]));
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

// The line that stands under the source line: tabs where it has tabs, then the caret.
std::string caret_line(const std::string& line, const Location& at) {
  std::string marks;
  for (std::size_t i = 0; i + 1 < at.column && i < line.size(); ++i) marks += line[i] == '\t' ? '\t' : ' ';
  const std::size_t room = line.size() > marks.size() ? line.size() - marks.size() : 1;
  marks += '^';
  marks.append(std::min<std::size_t>(std::max(at.width, 1U), room) - 1, '~');
  return marks;
}

// Every character takes one column, so that the caret stays below its place.
std::string printable(std::string text) {
  const auto acts = [](unsigned char c) { return (c < ' ' && c != '\t' && c != '\n') || c == 0x7f; };
  std::replace_if(text.begin(), text.end(), acts, '?');
  return text;
}

}  // namespace

std::string quoted(std::string_view text) { return "'" + std::string(text) + "'"; }

std::string nearest(std::string_view word, const std::vector<std::string>& candidates) {
  constexpr std::size_t longest = 64;
  if (word.size() > longest) return {};
  std::size_t best = word.size() / 3 + 1;  // one letter in three may differ
  std::string found;
  for (const std::string& candidate : candidates) {
    if (candidate.size() > longest || candidate == word) continue;
    const std::size_t far = distance(word, candidate);
    if (far < best) best = far, found = candidate;
  }
  return found;
}

bool Diagnostics::error(const Location& at, const std::string& message) {
  if (!report(at, "error", message)) return false;
  if (++errors_ < most_errors) return true;
  text_ += "poaidl: " + std::to_string(most_errors) + " errors are enough\n";
  throw GiveUp();
}

bool Diagnostics::warning(const Location& at, const std::string& message) {
  return warnings_are_errors_ ? error(at, message) : report(at, "warning", message);
}

void Diagnostics::note(const Location& at, const std::string& message) {
  if (at.line) show(at, "note", message);
}

bool Diagnostics::report(const Location& at, const char* kind, const std::string& message) {
  const std::string key =
      std::to_string(at.file) + ':' + std::to_string(at.line) + ':' + std::to_string(at.column) + message;
  if (!reported_.insert(key).second) return false;
  show(at, kind, message);
  return true;
}

void Diagnostics::show(const Location& at, const char* kind, const std::string& message) {
  if (!at.line) {
    text_ += std::string("poaidl: ") + kind + ": " + message + '\n';
    return;
  }
  text_ += printable(sources_.name(at.file) + ':' + std::to_string(at.line) + ':' +
                     std::to_string(at.column) + ": " + kind + ": " + message) +
           '\n';
  const std::string& line = sources_.line(at.file, at.line);
  constexpr std::size_t widest = 400;
  if (line.empty() || line.size() > widest) return;
  text_ += "  " + printable(line) + "\n  " + caret_line(line, at) + '\n';
}

}  // namespace idl
