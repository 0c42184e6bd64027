#include "scanner.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <unordered_map>

#include "parse.h"
#include "preprocess.h"

namespace idl {
namespace {

using Token = Parser::token;
using Symbol = Parser::symbol_type;

constexpr std::pair<const char*, int> keyword_rows[] = {
    {"abstract", Token::T_ABSTRACT},
    {"any", Token::T_ANY},
    {"attribute", Token::T_ATTRIBUTE},
    {"boolean", Token::T_BOOLEAN},
    {"case", Token::T_CASE},
    {"char", Token::T_CHAR},
    {"const", Token::T_CONST},
    {"context", Token::T_CONTEXT},
    {"custom", Token::T_CUSTOM},
    {"default", Token::T_DEFAULT},
    {"double", Token::T_DOUBLE},
    {"enum", Token::T_ENUM},
    {"exception", Token::T_EXCEPTION},
    {"factory", Token::T_FACTORY},
    {"FALSE", Token::T_FALSE},
    {"fixed", Token::T_FIXED},
    {"float", Token::T_FLOAT},
    {"getraises", Token::T_GETRAISES},
    {"in", Token::T_IN},
    {"inout", Token::T_INOUT},
    {"interface", Token::T_INTERFACE},
    {"local", Token::T_LOCAL},
    {"long", Token::T_LONG},
    {"module", Token::T_MODULE},
    {"native", Token::T_NATIVE},
    {"Object", Token::T_OBJECT},
    {"octet", Token::T_OCTET},
    {"oneway", Token::T_ONEWAY},
    {"out", Token::T_OUT},
    {"private", Token::T_PRIVATE},
    {"public", Token::T_PUBLIC},
    {"raises", Token::T_RAISES},
    {"readonly", Token::T_READONLY},
    {"sequence", Token::T_SEQUENCE},
    {"setraises", Token::T_SETRAISES},
    {"short", Token::T_SHORT},
    {"string", Token::T_STRING_TYPE},
    {"struct", Token::T_STRUCT},
    {"supports", Token::T_SUPPORTS},
    {"switch", Token::T_SWITCH},
    {"TRUE", Token::T_TRUE},
    {"truncatable", Token::T_TRUNCATABLE},
    {"typedef", Token::T_TYPEDEF},
    {"typeid", Token::T_TYPEID},
    {"typeprefix", Token::T_TYPEPREFIX},
    {"union", Token::T_UNION},
    {"unsigned", Token::T_UNSIGNED},
    {"ValueBase", Token::T_VALUEBASE},
    {"valuetype", Token::T_VALUETYPE},
    {"void", Token::T_VOID},
    {"wchar", Token::T_WCHAR},
    {"wstring", Token::T_WSTRING_TYPE},
};

const std::unordered_map<std::string, int>& keywords() {
  static const std::unordered_map<std::string, int> table(std::begin(keyword_rows), std::end(keyword_rows));
  return table;
}

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

unsigned digit_value(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  return static_cast<unsigned>(lower({c})[0] - 'a') + 10;
}

// Takes digits of a base off the front of text, at most so many.
char32_t take_digits(std::string_view& text, unsigned base, unsigned most) {
  char32_t value = 0;
  for (; most && !text.empty() && std::isxdigit(static_cast<unsigned char>(text[0])) &&
         digit_value(text[0]) < base;
       --most) {
    value = value * base + digit_value(text[0]);
    text.remove_prefix(1);
  }
  return value;
}

// Takes one UTF-8 character off the front; an octet of another code set stands for itself.
char32_t take_utf8(std::string_view& text) {
  const auto octet = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = octet(0);
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : first >= 0xc2 ? 2 : 1;
  char32_t code = length == 1 ? first : first & (0x7fU >> length);
  bool good = length <= text.size();
  for (std::size_t i = 1; good && i < length; ++i) {
    good = (octet(i) & 0xc0) == 0x80;
    code = code << 6 | (octet(i) & 0x3f);
  }
  if (!good) code = first;
  text.remove_prefix(good ? length : 1);
  return code;
}

// What stands between the quotes: both 'x' and L'x'.
std::string_view inside(std::string_view text) {
  const std::size_t start = text[0] == 'L' ? 2 : 1;
  return text.substr(start, text.size() - start - 1);
}

}  // namespace

const char* keyword_in_any_case(const std::string& word) {
  static const auto by_lower = [] {
    std::unordered_map<std::string, const char*> made;
    for (const auto& entry : keywords()) made.emplace(lower(entry.first), entry.first.c_str());
    return made;
  }();
  const auto found = by_lower.find(lower(word));
  return found == by_lower.end() ? nullptr : found->second;
}

// --- places -------------------------------------------------------------------------------------------------------

void Scanner::advance(const char* text, std::size_t length) {
  at_.column += at_.width;
  at_.width = static_cast<std::uint32_t>(length);
  const std::string_view piece(text, length);
  const auto lines = static_cast<std::uint32_t>(std::count(piece.begin(), piece.end(), '\n'));
  if (lines) {
    at_.line += lines;
    at_.column = 1;
    at_.width = static_cast<std::uint32_t>(length - piece.rfind('\n') - 1);
  }
  last_text_.assign(text, std::min<std::size_t>(length, 60));
  if (!lines && length && !std::isspace(static_cast<unsigned char>(text[0])) && text[0] != '#')
    settle_column(piece);
}

// Comments over several lines and macros move what stands behind them in the line. Where the author's line has
// something else at this column, the token is where it comes next.
void Scanner::settle_column(std::string_view token) {
  const std::string& line = sources_.line(at_.file, at_.line);
  if (at_.line != settled_.line || at_.file != settled_.file) settled_ = {at_.file, at_.line, 1, 0};
  if (line.compare(std::min<std::size_t>(at_.column - 1, line.size()), token.size(), token) != 0) {
    const std::size_t found = line.find(token, settled_.column - 1);
    if (found != std::string::npos) at_.column = static_cast<std::uint32_t>(found + 1);
  }
  settled_.column = std::min(at_.column + at_.width, static_cast<std::uint32_t>(line.size() + 1));
}

void Scanner::marker(const char* text) {
  std::string line = text, file;
  line.pop_back();
  std::uint32_t number = 0;
  if (parse_line_marker(line, number, file)) at_ = {sources_.number(file), number, 1, 0};
}

// --- directives ---------------------------------------------------------------------------------------------------

// #pragma prefix "p", #pragma ID name "id", #pragma version name 1.2. Others are for other compilers.
Symbol Scanner::directive(const char* text, bool& is_token) {
  std::vector<std::string> words;
  std::string line = text;
  line.erase(0, line.find('#') + 1);
  for (std::size_t i = 0; (i = line.find_first_not_of(" \t\r", i)) != std::string::npos;) {
    std::size_t end = line[i] == '"' ? line.find('"', i + 1) : line.find_first_of(" \t\r", i);
    if (line[i] == '"' && end != std::string::npos) ++end;
    words.push_back(line.substr(i, end - i));
    if (end == std::string::npos) break;
    i = end;
  }
  words.resize(std::max<std::size_t>(words.size(), 4));
  const bool prefix = words[1] == "prefix", id = words[1] == "ID", version = words[1] == "version";
  PragmaText pragma{prefix ? Pragma::Of::Prefix
                    : id   ? Pragma::Of::Id
                           : Pragma::Of::Version,
                    {},
                    words[prefix ? 2 : 3]};
  if (words[0] != "pragma" || !(prefix || id || version)) return Parser::make_END(at_);
  if (!prefix) pragma.target = words[2];
  std::string& value = pragma.text;
  const bool quoted_value = value.size() >= 2 && value.front() == '"' && value.back() == '"';
  if (quoted_value) value = value.substr(1, value.size() - 2);
  if (quoted_value == version || (version && value.empty())) {
    diagnostics_.error(
        at_, "expected #pragma prefix \"text\", #pragma ID name \"text\" or #pragma version name 1.0");
    return Parser::make_END(at_);
  }
  is_token = at_start_ = true;
  return Parser::make_PRAGMA(std::move(pragma), at_);
}

// --- words --------------------------------------------------------------------------------------------------------

Symbol Scanner::word(const std::string& text) {
  const bool start = std::exchange(at_start_, false);
  const char* const keyword = keyword_in_any_case(text);
  if (!keyword) return Parser::make_IDENTIFIER({text, at_}, at_);
  if (text != keyword) {
    diagnostics_.error(at_, quoted(text) + " is the keyword " + quoted(keyword) + " in another case");
    const bool is_value = keyword == std::string("TRUE") || keyword == std::string("FALSE");
    if (!start && !is_value) return Parser::make_IDENTIFIER({text, at_}, at_);
  }
  return Symbol(keywords().at(keyword), at_);
}

Symbol Scanner::escaped(const std::string& text) {
  at_start_ = false;
  return Parser::make_IDENTIFIER({text.substr(1), at_}, at_);
}

// --- literals -----------------------------------------------------------------------------------------------------

Symbol Scanner::integer(const std::string& text) {
  const bool hex = text.size() > 1 && (text[1] == 'x' || text[1] == 'X');
  const int base = hex ? 16 : text[0] == '0' ? 8 : 10;
  std::uint64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, failed] = std::from_chars(text.data() + (hex ? 2 : 0), end, value, base);
  if (failed == std::errc::result_out_of_range)
    diagnostics_.error(at_, text + " does not fit in 64 bits");
  else if (stopped != end)
    diagnostics_.error(at_, quoted({stopped, 1}) + " is no octal digit");
  else
    return Parser::make_LITERAL(Value(static_cast<Integer>(value)), at_);
  return Parser::make_LITERAL(Value(), at_);
}

Symbol Scanner::real(const std::string& text) {
  const long double value = std::strtold(text.c_str(), nullptr);
  if (value <= std::numeric_limits<long double>::max()) return Parser::make_LITERAL(Value(value), at_);
  diagnostics_.error(at_, text + " does not fit in a long double");
  return Parser::make_LITERAL(Value(), at_);
}

Symbol Scanner::fixed(const std::string& text) {
  Decimal value;
  if (parse_decimal(text.substr(0, text.size() - 1), value)) return Parser::make_LITERAL(Value(value), at_);
  diagnostics_.error(at_, "a fixed-point number has at most 31 digits");
  return Parser::make_LITERAL(Value(), at_);
}

// Resolves escape sequences. What is wrong is reported, and left out.
std::u32string Scanner::decode(std::string_view text, bool wide) {
  static constexpr std::string_view letters = "ntvbrfa\\?'\"", codes = "\n\t\v\b\r\f\a\\?'\"";
  std::u32string decoded;
  while (!text.empty()) {
    if (text[0] != '\\') {
      decoded += wide ? take_utf8(text) : static_cast<unsigned char>(text[0]);
      if (!wide) text.remove_prefix(1);
      continue;
    }
    const char c = text[1];
    if (const std::size_t found = letters.find(c); found != std::string_view::npos) {
      decoded += static_cast<unsigned char>(codes[found]);
      text.remove_prefix(2);
      continue;
    }
    const bool octal = c >= '0' && c <= '7';
    text.remove_prefix(octal ? 1 : 2);
    const std::size_t before = text.size();
    if (octal || c == 'x' || (c == 'u' && wide)) {
      decoded += octal ? take_digits(text, 8, 3) : take_digits(text, 16, c == 'x' ? 2 : 4);
      if (text.size() < before && decoded.back() <= (wide ? 0xffffU : 0xffU)) continue;
    }
    diagnostics_.error(at_, "'\\" + std::string(1, c) + "' is no escape sequence here");
  }
  return decoded;
}

Symbol Scanner::character(std::string_view text) {
  const std::u32string decoded = decode(inside(text), false);
  if (decoded.size() == 1) return Parser::make_LITERAL(Value(static_cast<char>(decoded[0])), at_);
  diagnostics_.error(at_, "a character literal holds one character");
  return Parser::make_LITERAL(Value(), at_);
}

Symbol Scanner::wide_character(std::string_view text) {
  const std::u32string decoded = decode(inside(text), true);
  if (decoded.size() == 1) return Parser::make_LITERAL(Value(WideChar{decoded[0]}), at_);
  diagnostics_.error(at_, "a wide character literal holds one character");
  return Parser::make_LITERAL(Value(), at_);
}

Symbol Scanner::string(std::string_view text) {
  const std::u32string decoded = decode(inside(text), false);
  std::string narrow;
  for (const char32_t c : decoded) narrow += static_cast<char>(c);
  if (narrow.find('\0') == std::string::npos) return Parser::make_LITERAL(Value(narrow), at_);
  diagnostics_.error(at_, "a string holds no null character");
  return Parser::make_LITERAL(Value(), at_);
}

Symbol Scanner::wide_string(std::string_view text) {
  std::u32string decoded = decode(inside(text), true);
  if (decoded.find(U'\0') == std::u32string::npos)
    return Parser::make_LITERAL(Value(std::move(decoded)), at_);
  diagnostics_.error(at_, "a wide string holds no null character");
  return Parser::make_LITERAL(Value(), at_);
}

// --- punctuation --------------------------------------------------------------------------------------------------

Symbol Scanner::punctuation(char c) {
  at_start_ = c == ';' || c == '{' || c == '}';
  last_text_ = c;
  count_brackets(c);
  return Symbol(static_cast<unsigned char>(c), at_);
}

void Scanner::count_brackets(char c) {
  if (at_start_) angles_.clear();
  if (c == '<') angles_.push_back(0);
  if (c == '>' && !angles_.empty()) angles_.pop_back();
  if (c == '(' && !angles_.empty()) ++angles_.back();
  if (c == ')' && closes_angle()) return;
  if (c == ')' && !angles_.empty()) --angles_.back();
  const bool opens = std::string_view("{([<").find(c) != std::string_view::npos;
  const bool closes = std::string_view("})]>").find(c) != std::string_view::npos;
  if (closes && nested_ > 0) --nested_;
  if (!opens || ++nested_ <= deepest) return;
  diagnostics_.error(at_, "nested more than " + std::to_string(deepest) + " deep");
  throw GiveUp();
}

// --- what is passed over ------------------------------------------------------------------------------------------

void Scanner::begin_skip(const std::string& what) {
  diagnostics_.warning(at_, what);
  skip_depth_ = 0;
}

void Scanner::skip_block() {
  for (unsigned depth = 1; depth > 0;) {
    const Symbol token = scan(flex_);
    const auto kind = token.kind();
    if (kind == Parser::symbol_kind::S_YYEOF) throw GiveUp();  // which the parser would find next
    depth += kind == Parser::symbol_kind::S_OPEN;
    depth -= kind == Parser::symbol_kind::S_CLOSE;
  }
}

void Scanner::recover(bool at_brace) {
  recovering_ = true;
  if (at_brace) skip_block();
}

// Whether the token belongs to what is wrong. A semicolon, a closing brace or the end of the file ends that.
bool Scanner::pass_over(const Symbol& token) {
  switch (token.kind()) {
    case Parser::symbol_kind::S_OPEN:
      skip_block();
      return true;
    case Parser::symbol_kind::S_SEMICOLON:
    case Parser::symbol_kind::S_CLOSE:
    case Parser::symbol_kind::S_YYEOF:
      recovering_ = false;
      return false;
    default:
      return false;
  }
}

}  // namespace idl
