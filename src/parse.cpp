// The text side of exact expressions: tokeniser, recursive-descent parser and canonical
// printer.
//
// Grammar (operators left-associative except `^`):
//   expr    := term (("+" | "-") term)*
//   term    := primary (("*" | "/") primary)*
//   primary := "-" primary | atom ("^" primary)?
//   atom    := "(" expr ")" | number | name | name "(" expr ")"
// The exponent of `^` is a primary, so `2^3^2` is 2^(3^2) and `-2^2` is -(2^2).
//
// Printing gives every operator a binding limit and prints each operand with the precedence
// its side allows; a node is parenthesised only when its context binds tighter than it does.
// Left operands of "+" and "*" get their own level and right operands one less, which keeps
// `1+(2+3)` and drops the parentheses of `(1+2)+3`.
#include "parse.hpp"

#include <algorithm>
#include <type_traits>

namespace tv {

static_assert(std::is_nothrow_move_constructible_v<Expr>);

// Down the first children in a loop, into the others by recursion.
bool operator==(const Expr& a, const Expr& b) {
  for (const Expr *x = &a, *y = &b;; x = &x->args.front(), y = &y->args.front()) {
    if (x->op != y->op || x->value != y->value || x->args.size() != y->args.size()) return false;
    for (std::size_t i = 1; i < x->args.size(); ++i)
      if (!(x->args[i] == y->args[i])) return false;
    if (x->args.empty()) return true;
  }
}

ExprArgs::ExprArgs(std::initializer_list<Expr> items) : std::vector<Expr>(items) {}

ExprArgs::ExprArgs(const ExprArgs& other) : std::vector<Expr>() {
  const ExprArgs* source = &other;
  for (ExprArgs* target = this; !source->empty(); target = &target->front().args, source = &source->front().args) {
    target->reserve(source->size());
    target->push_back(Expr{source->front().value, source->front().op, {}});
    target->insert(target->end(), source->begin() + 1, source->end());
  }
}

ExprArgs& ExprArgs::operator=(const ExprArgs& other) {
  if (this != &other) *this = ExprArgs(other);
  return *this;
}

ExprArgs& ExprArgs::operator=(ExprArgs&& other) noexcept {
  if (this == &other) return *this;
  const ExprArgs old(std::move(*this));  // freed by the loop below, after `other` is taken
  std::vector<Expr>::operator=(std::move(other));
  return *this;
}

// Every child that has children of its own is taken apart here, in a loop.
ExprArgs::~ExprArgs() {
  std::vector<Expr> pending;
  for (Expr& child : *this)
    if (!child.args.empty()) pending.push_back(std::move(child));
  while (!pending.empty()) {
    Expr node = std::move(pending.back());
    pending.pop_back();
    for (Expr& child : node.args)
      if (!child.args.empty()) pending.push_back(std::move(child));
  }
}

namespace {

// ---- Characters ----------------------------------------------------------------------------

constexpr char32_t kReplacement = 0xFFFD;

// The length of the well-formed UTF-8 sequence at text[i], with its code point in `c`; 0 when
// no valid sequence starts there (overlong forms, surrogates and values past U+10FFFF count
// as invalid).
std::size_t read_utf8(std::string_view text, std::size_t i, char32_t& c) {
  const auto lead = static_cast<unsigned char>(text[i]);
  const std::size_t length = lead < 0x80                  ? 1
                             : lead >= 0xC2 && lead < 0xE0 ? 2
                             : lead >= 0xE0 && lead < 0xF0 ? 3
                             : lead >= 0xF0 && lead < 0xF5 ? 4
                                                           : 0;
  if (length == 0 || i + length > text.size()) return 0;
  c = length == 1 ? lead : length == 2 ? lead & 0x1F : length == 3 ? lead & 0x0F : lead & 0x07;
  for (std::size_t k = 1; k < length; ++k) {
    const auto next = static_cast<unsigned char>(text[i + k]);
    if ((next & 0xC0) != 0x80) return 0;
    c = (c << 6) | (next & 0x3F);
  }
  const bool overlong = (length == 3 && c < 0x800) || (length == 4 && c < 0x10000);
  if (overlong || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0;
  return length;
}

// Code points of UTF-8 text; a byte that starts no valid sequence reads as U+FFFD.
std::vector<char32_t> decode_utf8(std::string_view text) {
  std::vector<char32_t> out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    char32_t c = 0;
    const std::size_t length = read_utf8(text, i, c);
    out.push_back(length > 0 ? c : kReplacement);
    i += length > 0 ? length : 1;
  }
  return out;
}

std::string encode_utf8(char32_t c) {
  std::string out;
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
  return out;
}

// The Unicode White_Space property.
bool is_white_space(char32_t c) {
  return (c >= 9 && c <= 13) || c == 32 || c == 0x85 || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) ||
         c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

bool is_ascii_letter(char32_t c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }
bool is_digit(char32_t c) { return c >= '0' && c <= '9'; }
bool is_operator(char32_t c) { return c == '(' || c == ')' || c == '*' || c == '+' || c == '-' || c == '/' || c == '^'; }

std::string code(std::string_view text) { return "<code>" + std::string(text) + "</code>"; }

// ---- Tokens --------------------------------------------------------------------------------

struct Token {
  enum class Kind : std::uint8_t { Operator, Identifier, Number };
  Kind kind;
  std::string name;  // the operator character or the identifier
  Fraction number;

  bool is(char op) const { return kind == Kind::Operator && name[0] == op; }
  std::string text() const { return kind == Kind::Number ? number.to_string() : name; }
};

class Tokeniser {
 public:
  explicit Tokeniser(std::string_view text) : chars_(decode_utf8(text)) {}

  Result<std::vector<Token>> run() {
    std::vector<Token> tokens;
    if (chars_.empty()) return tokens;
    skip_white_space();
    while (true) {
      TV_TRY(Token token, next());
      tokens.push_back(std::move(token));
      skip_white_space();
      if (at_end()) return tokens;
    }
  }

 private:
  bool at_end() const { return i_ == chars_.size(); }
  void skip_white_space() {
    while (!at_end() && is_white_space(chars_[i_])) ++i_;
  }

  Result<Token> next() {
    // Only a text of white space alone gets here at its end; its first character is the fault.
    if (at_end()) return unexpected(chars_.front());
    const char32_t c = chars_[i_];
    if (is_operator(c)) {
      ++i_;
      return Token{Token::Kind::Operator, std::string(1, static_cast<char>(c)), {}};
    }
    if (is_ascii_letter(c)) {
      std::string name;
      while (!at_end() && (is_ascii_letter(chars_[i_]) || is_digit(chars_[i_]))) name += static_cast<char>(chars_[i_++]);
      return Token{Token::Kind::Identifier, std::move(name), {}};
    }
    if (is_digit(c)) {
      TV_TRY(Fraction number, read_number());
      return Token{Token::Kind::Number, {}, std::move(number)};
    }
    return unexpected(c);
  }

  static Failure unexpected(char32_t c) { return parse_failure("Unexpected character " + code(encode_utf8(c))); }

  // Digits, then optionally "." and more digits: (n * 10^k + f) / 10^k in lowest terms. Each
  // run of digits must fit signed 64 bits; the scaled value is computed without a limit.
  Result<Fraction> read_number() {
    TV_TRY(const std::int64_t whole, read_digits());
    if (i_ + 1 < chars_.size() && chars_[i_] == '.' && is_digit(chars_[i_ + 1])) {
      ++i_;
      const std::size_t start = i_;
      TV_TRY(const std::int64_t fraction, read_digits());
      const Int scale = Int(10).pow(static_cast<std::uint32_t>(i_ - start));
      return Fraction::of(Int(whole) * scale + Int(fraction), scale);
    }
    return Fraction(whole);
  }

  Result<std::int64_t> read_digits() {
    const std::size_t start = i_;
    std::int64_t value = 0;
    bool overflow = false;
    for (; !at_end() && is_digit(chars_[i_]); ++i_)
      overflow = overflow || __builtin_mul_overflow(value, 10, &value) ||
                 __builtin_add_overflow(value, static_cast<std::int64_t>(chars_[i_] - '0'), &value);
    if (overflow)
      return parse_failure("Number out of range: " +
                           code(std::string(chars_.begin() + static_cast<std::ptrdiff_t>(start),
                                            chars_.begin() + static_cast<std::ptrdiff_t>(i_))));
    return value;
  }

  std::vector<char32_t> chars_;
  std::size_t i_ = 0;
};

// ---- Parser --------------------------------------------------------------------------------

// Each step writes its subtree into an out-parameter and returns a Status: a text nested n
// levels deep recurses about 4n frames, and keeping results out of the frames keeps each of
// them small. A chain of operators is a loop, however long.
class Parser {
 public:
  explicit Parser(std::vector<Token> tokens) : tokens_(std::move(tokens)) {}

  Result<Expr> run() {
    Expr parsed;
    TV_CHECK(operands(0, 0, parsed));
    if (i_ < tokens_.size()) return parse_failure("Expected end of string, but found " + code(tokens_[i_].text()));
    return parsed;
  }

 private:
  // Makes `op` the parent of `left` (and of `right`, when given), in place of `left`.
  static void join(std::string op, Expr& left, Expr* right) {
    ExprArgs args;
    args.reserve(right != nullptr ? 2 : 1);
    args.push_back(std::move(left));
    if (right != nullptr) args.push_back(std::move(*right));
    left = Expr{std::nullopt, std::move(op), std::move(args)};
  }

  const Token* peek() const { return i_ < tokens_.size() ? &tokens_[i_] : nullptr; }
  bool next_is(char op) const { return i_ < tokens_.size() && tokens_[i_].is(op); }

  // A left-associative chain of `term`s joined by + and - (level 0), or of `primary`s joined
  // by * and / (level 1). `depth` counts the enclosing parentheses, calls, negations and
  // exponents.
  Status operands(int level, int depth, Expr& out) {
    const auto operand = [&](Expr& into) { return level == 0 ? operands(1, depth, into) : primary(depth, into); };
    const char first = level == 0 ? '+' : '*', second = level == 0 ? '-' : '/';
    TV_CHECK(operand(out));
    while (next_is(first) || next_is(second)) {
      std::string op = tokens_[i_++].name;
      Expr right;
      TV_CHECK(operand(right));
      join(std::move(op), out, &right);
    }
    return {};
  }

  Status primary(int depth, Expr& out) {
    if (depth > kMaxExprDepth) return nested_too_deeply();
    const Token* token = peek();
    if (token == nullptr) return end_of_expression();
    if (token->is('-')) {
      ++i_;
      TV_CHECK(primary(depth + 1, out));
      join("neg", out, nullptr);
      return {};
    }
    TV_CHECK(atom(depth, out));
    if (!next_is('^')) return {};
    ++i_;
    Expr exponent;
    TV_CHECK(primary(depth + 1, exponent));
    join("^", out, &exponent);
    return {};
  }

  Status atom(int depth, Expr& out) {
    const Token& token = tokens_[i_++];
    switch (token.kind) {
      case Token::Kind::Operator:
        if (!token.is('(')) return unexpected(token);
        TV_CHECK(operands(0, depth + 1, out));
        return close();
      case Token::Kind::Number:
        out = Expr{token.number, "num", {}};
        return {};
      case Token::Kind::Identifier:
        out = Expr{std::nullopt, token.name, {}};
        if (!next_is('(')) return {};
        ++i_;
        Expr argument;
        TV_CHECK(operands(0, depth + 1, argument));
        TV_CHECK(close());
        out.args.push_back(std::move(argument));
        return {};
    }
    fail_invariant("unknown token kind");
  }

  Status close() {
    if (!next_is(')')) return missing_close(peek());
    ++i_;
    return {};
  }

  // Failures are made out of line, so that their strings take no room in the recursive frames.
  [[gnu::noinline]] static Failure end_of_expression() { return parse_failure("Unexpected end of expression"); }
  [[gnu::noinline]] static Failure unexpected(const Token& token) {
    return parse_failure("Unexpected " + code(token.name));
  }
  [[gnu::noinline]] static Failure missing_close(const Token* found) {
    if (found == nullptr) return parse_failure("Expected " + code(")") + ", but reached end of expression");
    return parse_failure("Expected " + code(")") + ", but found " + code(found->text()));
  }

  std::vector<Token> tokens_;
  std::size_t i_ = 0;
};

// ---- Printer -------------------------------------------------------------------------------

// How an operator prints: the precedence it needs to go without parentheses, and the
// precedences its operands are printed with.
struct Binding {
  const char* op;
  int limit, left, right;
};

constexpr Binding kBindings[] = {
    {"+", 6, 6, 5}, {"-", 6, 6, 5}, {"*", 4, 4, 3}, {"/", 4, 4, 3}, {"^", 2, 1, 2},
};

Failure no_text(const Expr& expr) { return parse_failure("generateExpr: invalid operation '" + expr.op + "'"); }

const Binding* binding_of(const Expr& expr) {
  for (const Binding& binding : kBindings)
    if (expr.op == binding.op && expr.args.size() == 2) return &binding;
  return nullptr;
}

// A node whose first child is still to print: what closes it once that child is printed.
struct OpenNode {
  const Expr* node;
  const Binding* binding;  // null for sqrt and neg
  bool wrapped;
};

// Down the first children in a loop, writing what comes before each; then back up, writing
// what comes after each, which recurses only into second operands.
Status print(const Expr& expr, int precedence, int depth, std::string& out) {
  if (depth > kMaxExprRecursion) return nested_too_deeply();
  std::vector<OpenNode> open;
  for (const Expr* node = &expr;; node = &node->args.front()) {
    if (node->op == "num") {
      out += node->value ? node->value->to_string() : "undefined";
      break;
    }
    if (node->op == "sqrt" && node->args.size() == 1) {
      out += "sqrt(";
      open.push_back({node, nullptr, false});
      precedence = 10;
      continue;
    }
    const Binding* binding = binding_of(*node);
    const bool neg = node->op == "neg" && node->args.size() == 1;
    if (!neg && binding == nullptr) return no_text(*node);
    const bool wrapped = precedence < (neg ? 2 : binding->limit);
    if (wrapped) out += '(';
    if (neg) out += '-';
    open.push_back({node, binding, wrapped});
    precedence = neg ? 2 : binding->left;
  }
  for (auto it = open.rbegin(); it != open.rend(); ++it) {
    if (it->binding != nullptr) {
      out += it->node->op;
      TV_CHECK(print(it->node->args[1], it->binding->right, depth + 1, out));
    }
    if (it->wrapped || it->node->op == "sqrt") out += ')';
  }
  return {};
}

}  // namespace

Failure nested_too_deeply() {
  return parse_failure("Expression nested too deeply: more than " + std::to_string(kMaxExprDepth) + " levels");
}

bool is_valid_utf8(std::string_view text) {
  char32_t c = 0;
  for (std::size_t i = 0, length = 0; i < text.size(); i += length)
    if ((length = read_utf8(text, i, c)) == 0) return false;
  return true;
}

Result<Expr> parse_expr(std::string_view text) {
  TV_TRY(std::vector<Token> tokens, Tokeniser(text).run());
  return Parser(std::move(tokens)).run();
}

Result<std::string> generateExpr(const Expr& expr, int precedence) {
  std::string out;
  TV_CHECK(print(expr, precedence, 0, out));
  return out;
}

}  // namespace tv
