%{
// The tokens of IDL. Actions are in scanner.cpp.
#include "scanner.h"

#define YY_DECL idl::Parser::symbol_type idl::Scanner::scan(yyscan_t yyscanner)
#define YY_USER_ACTION advance(yytext, static_cast<std::size_t>(yyleng));
#define YY_FATAL_ERROR(message) throw std::runtime_error(message)
%}

%option reentrant noyywrap nounput noinput nodefault never-interactive 8bit
%option prefix="idl_yy"

%x SKIP AFTER_ANNOTATION

ID        [A-Za-z][A-Za-z0-9_]*
SPACE     [ \t\r\f\v]
WHITE     [ \t\r\f\v\n]
EXPONENT  [eE][+-]?[0-9]+
CHAR      ([^'\\\n]|\\.)
STRING    \"([^"\\\n]|\\.)*\"
BLOCK     bitset|bitmask|component|home|porttype|connector|eventtype

%%

<*>^"#line "[^\n]*\n       marker(yytext);
^{SPACE}*"#"[^\n]*         { bool is_token = false; auto token = directive(yytext, is_token); if (is_token) return token; }
<SKIP>"#"                  ;
<*>\n                      ;
{SPACE}+                   ;

"@"{WHITE}*"annotation"{WHITE} begin_skip("annotations are read over"); skip_to_semicolon_ = true; BEGIN(SKIP);
"@"{WHITE}*{ID}("::"{ID})*  begin_skip("annotations are read over"); skip_to_semicolon_ = false; BEGIN(AFTER_ANNOTATION);
<AFTER_ANNOTATION>{
  {SPACE}+                 ;
  "("                      skip_depth_ = 1; BEGIN(SKIP);
  .                        yyless(0); --at_.column; BEGIN(INITIAL);
}

({BLOCK})/{WHITE}+{ID}[^;{}()=,<>]*"{"  {
    if (!at_start_) return word(yytext);
    begin_skip("a " + std::string(yytext) + " is read over"); skip_to_semicolon_ = true; BEGIN(SKIP); }
"module"/{WHITE}+{ID}{WHITE}*"<"  begin_skip("a template module is read over"); skip_to_semicolon_ = true; BEGIN(SKIP);
<SKIP>{
  {STRING}                 ;
  '{CHAR}+'                ;
  [{(]                     ++skip_depth_;
  [})]                     if (skip_depth_ > 0) --skip_depth_; if (!skip_depth_ && !skip_to_semicolon_) BEGIN(INITIAL);
  ";"                      if (!skip_depth_) BEGIN(INITIAL);
  [^{}();\"'\n#]+          ;
  .                        ;
}

{ID}                       return word(yytext);
"_"{ID}                    return escaped(yytext);

0[xX][0-9a-fA-F]+|[0-9]+   return integer(yytext);
[0-9]+"."[0-9]*{EXPONENT}?|"."[0-9]+{EXPONENT}?|[0-9]+{EXPONENT}  return real(yytext);
([0-9]+"."?[0-9]*|"."[0-9]+)[dD]  return fixed(yytext);
'{CHAR}*'                  return character({yytext, static_cast<std::size_t>(yyleng)});
L'{CHAR}*'                 return wide_character({yytext, static_cast<std::size_t>(yyleng)});
{STRING}                   return string({yytext, static_cast<std::size_t>(yyleng)});
L{STRING}                  return wide_string({yytext, static_cast<std::size_t>(yyleng)});

"::"                       return Parser::make_SCOPE(at_);
"<<"                       return Parser::make_LEFT(at_);
">>"                       { if (!closes_angle()) return Parser::make_RIGHT(at_);
                             yyless(1); at_.width = 1; return punctuation('>'); }
[{}()<>\[\];:,=|^&+\-*/%~]  return punctuation(yytext[0]);

<<EOF>>                    { at_.column += at_.width; at_.width = 1; last_text_ = "end of file"; return Parser::make_END(at_); }
[\x80-\xff]+|.             diagnostics_.error(at_, "a character that IDL does not use");

%%

idl::Scanner::Scanner(const std::string& text, Sources& sources, Diagnostics& diagnostics)
    : sources_(sources), diagnostics_(diagnostics), at_{0, 1, 1, 0} {
  if (yylex_init(&flex_)) throw std::bad_alloc();
  yy_scan_bytes(text.data(), static_cast<int>(text.size()), flex_);
}

idl::Scanner::~Scanner() { yylex_destroy(flex_); }

idl::Parser::symbol_type idl::Scanner::next() {
  for (;;) {
    Parser::symbol_type token = scan(flex_);
    if (!recovering_ || !pass_over(token)) return token;
  }
}
