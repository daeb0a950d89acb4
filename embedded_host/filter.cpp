#include "embedded_host/filter.h"

#include <algorithm>
#include <cmath>

#include "embedded_host/iso_time.h"
#include "embedded_host/json_writer.h"
#include "embedded_host/parse_number.h"

namespace corvane::host {

namespace {

constexpr int kMaxDepth = 32;
constexpr std::size_t kMaxComparisons = 100;

enum class TokenKind { kWord, kText, kOpen, kClose, kEnd };

struct Token {
  TokenKind kind = TokenKind::kEnd;
  std::string text;        // a word as it is, a quoted text without quotes
  std::size_t position{};  // counted from 1
};

class Lexer {
 public:
  explicit Lexer(std::string_view filter) : filter_(filter) {}

  Token next() {
    while (at_ < filter_.size() && filter_[at_] == ' ') ++at_;
    Token token;
    token.position = at_ + 1;
    if (at_ == filter_.size()) return token;
    if (filter_[at_] == '(' || filter_[at_] == ')') {
      token.kind = filter_[at_] == '(' ? TokenKind::kOpen : TokenKind::kClose;
      ++at_;
      return token;
    }
    if (filter_[at_] == '\'') return quoted(token);
    token.kind = TokenKind::kWord;
    while (at_ < filter_.size() && is_word(filter_[at_])) token.text += filter_[at_++];
    if (token.text.empty()) {
      throw BadFilter("cannot read '" + printable(filter_.substr(at_, 1)) + "'", token.position);
    }
    return token;
  }

 private:
  static bool is_word(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
           c == '-' || c == '+' || c == '.' || c == ':';
  }

  Token quoted(Token token) {
    token.kind = TokenKind::kText;
    for (++at_; at_ < filter_.size(); ++at_) {
      if (filter_[at_] == '\'') {
        ++at_;
        if (at_ == filter_.size() || filter_[at_] != '\'') return token;
      }
      token.text += filter_[at_];
    }
    throw BadFilter("the text has no closing quote", token.position);
  }

  std::string_view filter_;
  std::size_t at_ = 0;
};

class Parser {
 public:
  Parser(std::string_view filter, std::span<const FilterAttribute> attributes, int first_parameter)
      : lexer_(filter), attributes_(attributes), first_parameter_(first_parameter) {
    advance();
  }

  FilterSql parse() {
    alternatives(0);
    if (token_.kind != TokenKind::kEnd) fail("expected 'and', 'or' or the end");
    return std::move(result_);
  }

 private:
  [[noreturn]] void fail(const std::string& reason) const {
    throw BadFilter(reason, token_.position);
  }

  void advance() { token_ = lexer_.next(); }

  bool at_word(std::string_view word) const {
    return token_.kind == TokenKind::kWord && token_.text == word;
  }

  void alternatives(int depth) {
    and_terms(depth);
    while (at_word("or")) {
      advance();
      result_.condition += " OR ";
      and_terms(depth);
    }
  }

  void and_terms(int depth) {
    term(depth);
    while (at_word("and")) {
      advance();
      result_.condition += " AND ";
      term(depth);
    }
  }

  void term(int depth) {
    if (token_.kind != TokenKind::kOpen) return comparison();
    if (depth == kMaxDepth) fail("the parentheses are nested too deeply");
    advance();
    result_.condition += '(';
    alternatives(depth + 1);
    if (token_.kind != TokenKind::kClose) fail("expected ')'");
    result_.condition += ')';
    advance();
  }

  void comparison() {
    if (token_.kind != TokenKind::kWord) fail("expected an attribute");
    const auto attribute =
        std::find_if(attributes_.begin(), attributes_.end(),
                     [&](const FilterAttribute& known) { return known.name == token_.text; });
    if (attribute == attributes_.end()) fail("unknown attribute '" + printable(token_.text) + "'");
    if (result_.values.size() == kMaxComparisons) fail("there are too many comparisons");
    advance();
    result_.condition += std::string(attribute->sql) + comparison_operator() + "?" +
                         std::to_string(first_parameter_ + static_cast<int>(result_.values.size()));
    advance();
    add_value(*attribute);
    advance();
  }

  const char* comparison_operator() const {
    if (at_word("ge")) return ">=";
    if (at_word("le")) return "<=";
    if (at_word("eq")) return "=";
    fail("expected 'ge', 'le' or 'eq'");
  }

  void add_value(const FilterAttribute& attribute) {
    const std::string name(attribute.name);
    if (attribute.kind == AttributeKind::kText) {
      if (token_.kind != TokenKind::kText) fail(name + " needs a text in single quotes");
      result_.values.emplace_back(std::move(token_.text));
      return;
    }
    if (token_.kind != TokenKind::kWord) {
      fail(name + (attribute.kind == AttributeKind::kTime ? " needs a time without quotes"
                                                          : " needs a number"));
    }
    if (attribute.kind == AttributeKind::kTime) {
      add_time(name);
    } else {
      add_number(name);
    }
  }

  void add_time(const std::string& name) {
    const auto instant = parse_iso_time(token_.text);
    if (!instant) fail(name + " needs a time such as 2026-01-31T04:05:06.000Z");
    if (instant->milliseconds == 0) {
      result_.values.emplace_back(instant->seconds);
    } else {
      result_.values.emplace_back(static_cast<double>(instant->seconds) +
                                  instant->milliseconds / 1000.0);
    }
  }

  void add_number(const std::string& name) {
    if (const auto whole = parse_number<std::int64_t>(token_.text)) {
      result_.values.emplace_back(*whole);
      return;
    }
    const auto number = parse_number<double>(token_.text);
    if (!number || !std::isfinite(*number)) fail(name + " needs a number");
    result_.values.emplace_back(*number);
  }

  Lexer lexer_;
  std::span<const FilterAttribute> attributes_;
  int first_parameter_;
  Token token_;
  FilterSql result_;
};

}  // namespace

FilterSql translate_filter(std::string_view filter, std::span<const FilterAttribute> attributes,
                           int first_parameter) {
  return Parser(filter, attributes, first_parameter).parse();
}

}  // namespace corvane::host
