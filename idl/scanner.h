// Text to tokens: what the generated scanner keeps from one token to the next.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "diagnostics.h"
#include "grammar.h"

namespace idl {

class Scanner {
 public:
  /// Brackets of all kinds may stand in each other so deep.
  static constexpr unsigned deepest = 100;

  Scanner(const std::string& text, Sources& sources, Diagnostics& diagnostics);
  ~Scanner();
  Scanner(const Scanner&) = delete;
  Scanner& operator=(const Scanner&) = delete;

  /// The next token. While the parser recovers from an error, blocks in braces are passed over as a whole.
  Parser::symbol_type next();
  /// From the parser, at an error it cannot mend: pass over all that belongs to what is wrong.
  void recover(bool at_brace);
  /// What the last token looked like.
  const std::string& last_text() const { return last_text_; }

 private:
  // The generated function; the rest are its actions.
  Parser::symbol_type scan(void* scanner);
  void advance(const char* text, std::size_t length);
  void settle_column(std::string_view token);
  void marker(const char* text);
  Parser::symbol_type directive(const char* text, bool& is_token);
  Parser::symbol_type word(const std::string& text);
  Parser::symbol_type escaped(const std::string& text);
  Parser::symbol_type integer(const std::string& text);
  Parser::symbol_type real(const std::string& text);
  Parser::symbol_type fixed(const std::string& text);
  Parser::symbol_type character(std::string_view text);
  Parser::symbol_type wide_character(std::string_view text);
  Parser::symbol_type string(std::string_view text);
  Parser::symbol_type wide_string(std::string_view text);
  Parser::symbol_type punctuation(char c);
  bool closes_angle() const { return !angles_.empty() && angles_.back() == 0; }
  void count_brackets(char c);
  void skip_block();
  bool pass_over(const Parser::symbol_type& token);
  void begin_skip(const std::string& what);
  std::u32string decode(std::string_view text, bool wide);

  Sources& sources_;
  Diagnostics& diagnostics_;
  void* flex_ = nullptr;
  Location at_;
  Location settled_;  // behind the last token of the line
  std::string last_text_;
  bool at_start_ = true;          // where a declaration may begin
  bool recovering_ = false;       // until the end of what is wrong
  unsigned nested_ = 0;           // open brackets
  std::vector<unsigned> angles_;  // parentheses within each open '<'
  unsigned skip_depth_ = 0;       // open brackets of what is read over
  bool skip_to_semicolon_ = false;
};

}  // namespace idl
