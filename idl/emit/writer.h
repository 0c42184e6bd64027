// Text with indentation.
#pragma once

#include <string>

namespace idl {

class Writer {
 public:
  void line(const std::string& text) { text_ += text.empty() ? "\n" : indent_ + text + '\n'; }
  /// Several lines, made by another writer.
  void lines(const std::string& text) {
    for (std::size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
      line(text.substr(at, end - at));
  }
  /// A line that stands half a step to the left: "public:" and the like.
  void label(const std::string& text) { text_ += indent_.substr(0, indent_.size() - 1) + text + '\n'; }
  void blank() {
    if (!text_.empty() && !text_.ends_with("\n\n") && !text_.ends_with("{\n")) text_ += '\n';
  }
  void open(const std::string& head) {
    line(head);
    indent_ += "  ";
  }
  void close(const std::string& tail) {
    indent_.resize(indent_.size() - 2);
    line(tail);
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_, indent_;
};

}  // namespace idl
