#include <gtest/gtest.h>

#include <random>

#include "parse.hpp"
#include "pool.hpp"

namespace tv {
namespace {

std::string printed(std::string_view text) {
  auto expr = parse_expr(text);
  EXPECT_TRUE(expr.ok()) << text << ": " << expr.failure().message;
  if (!expr) return {};
  auto out = generateExpr(*expr);
  EXPECT_TRUE(out.ok()) << text << ": " << out.failure().message;
  return out ? *out : std::string();
}

std::string parse_error(std::string_view text) {
  auto expr = parse_expr(text);
  if (expr) return "parsed";
  EXPECT_EQ(expr.failure().kind, FailureKind::Parse) << text;
  return expr.failure().message;
}

TEST(Expressions, ParseFailuresNameTheFirstFault) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"", "Unexpected end of expression"},
      {"   ", "Unexpected character <code> </code>"},
      {"\t ", "Unexpected character <code>\t</code>"},
      {"1 + #", "Unexpected character <code>#</code>"},
      {"1 + \xC3\xA9", "Unexpected character <code>\xC3\xA9</code>"},
      {"2 \xFF", "Unexpected character <code>\xEF\xBF\xBD</code>"},
      {"1.", "Unexpected character <code>.</code>"},
      {".5", "Unexpected character <code>.</code>"},
      {"(1 + $", "Unexpected character <code>$</code>"},
      {"9223372036854775808", "Number out of range: <code>9223372036854775808</code>"},
      {"1.99999999999999999999", "Number out of range: <code>99999999999999999999</code>"},
      {"1+", "Unexpected end of expression"},
      {"-", "Unexpected end of expression"},
      {"2^", "Unexpected end of expression"},
      {"*3", "Unexpected <code>*</code>"},
      {"1+)", "Unexpected <code>)</code>"},
      {"(1+2", "Expected <code>)</code>, but reached end of expression"},
      {"sqrt(2", "Expected <code>)</code>, but reached end of expression"},
      {"(1 2)", "Expected <code>)</code>, but found <code>2</code>"},
      {"(1 x)", "Expected <code>)</code>, but found <code>x</code>"},
      {"(1 2.50)", "Expected <code>)</code>, but found <code>5/2</code>"},
      {"2x", "Expected end of string, but found <code>x</code>"},
      {"2sqrt(2)", "Expected end of string, but found <code>sqrt</code>"},
      {"1)", "Expected end of string, but found <code>)</code>"},
      {"f(1, 2)", "Unexpected character <code>,</code>"},
  };
  for (const auto& [text, message] : cases) EXPECT_EQ(parse_error(text), message) << text;
}

TEST(Expressions, NumbersAreReducedFractions) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"9223372036854775807", "9223372036854775807"},
      {"0.25", "1/4"},
      {"2.50", "5/2"},
      {"00012", "12"},
      {"9223372036854775807.9223372036854775807", "92233720368547758079223372036854775807/10000000000000000000"},
      {"1.0000000000000000000000000001", "10000000000000000000000000001/10000000000000000000000000000"},
  };
  for (const auto& [text, value] : cases) {
    auto expr = parse_expr(text);
    ASSERT_TRUE(expr.ok()) << text;
    EXPECT_EQ(expr->op, "num");
    ASSERT_TRUE(expr->value.has_value());
    EXPECT_EQ(expr->value->to_string(), value);
  }
}

TEST(Expressions, CanonicalText) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"(1+2)+3", "1+2+3"},         {"1+(2+3)", "1+(2+3)"},     {"(2*3)*5", "2*3*5"},
      {"2*(3*5)", "2*(3*5)"},       {"(2^3)^2", "(2^3)^2"},     {"2^(3^2)", "2^3^2"},
      {"-(1+2)", "-(1+2)"},         {"(-2)^2", "(-2)^2"},       {"-2^2", "-2^2"},
      {" 1 +\n2 ", "1+2"},          {"0.5", "1/2"},             {"2/4", "2/4"},
      {"sqrt(5)/5", "sqrt(5)/5"},   {"1/(2*3)", "1/(2*3)"},     {"1-(2-3)", "1-(2-3)"},
      {"(1*2)+(3/4)", "1*2+3/4"},   {"(1+2)*3", "(1+2)*3"},     {"2*-3", "2*-3"},
      {"2^-1", "2^-1"},             {"--2", "--2"},             {"neg(2)", "-2"},
      {"neg(1+2)*3", "-(1+2)*3"},   {"sqrt((1+2))", "sqrt(1+2)"}, {"num", "undefined"},
      {"(sqrt(5)+1)/2+2/3", "(sqrt(5)+1)/2+2/3"}, {"2/(sqrt(5)+1)", "2/(sqrt(5)+1)"},
      {"1.5^2", "3/2^2"},
  };
  for (const auto& [text, canonical] : cases) EXPECT_EQ(printed(text), canonical) << text;
}

TEST(Expressions, TreesWithoutText) {
  for (std::string_view text : {"cbrt(2)", "pi", "foo(1)", "sqrt", "neg", "1+cbrt(2)"}) {
    auto expr = parse_expr(text);
    ASSERT_TRUE(expr.ok()) << text;
    auto out = generateExpr(*expr);
    ASSERT_FALSE(out.ok()) << text;
    EXPECT_EQ(out.failure().kind, FailureKind::Parse);
    EXPECT_TRUE(out.failure().message.starts_with("generateExpr: invalid operation '")) << out.failure().message;
  }
  EXPECT_EQ(generateExpr(*parse_expr("cbrt(2)")).failure().message, "generateExpr: invalid operation 'cbrt'");
  EXPECT_EQ(generateExpr(Expr{std::nullopt, "+", {}}).failure().message, "generateExpr: invalid operation '+'");
}

TEST(Expressions, EqualityIsStructural) {
  EXPECT_EQ(*parse_expr("1/2"), *parse_expr(" 1 / 2 "));
  EXPECT_FALSE(*parse_expr("1/2") == *parse_expr("2/4"));
  EXPECT_FALSE(*parse_expr("0.5") == *parse_expr("1/2"));
  EXPECT_EQ(*parse_expr("0.5"), *parse_expr("0.50"));
  EXPECT_FALSE(*parse_expr("sqrt(2)") == *parse_expr("cbrt(2)"));
  EXPECT_EQ(*parse_expr("neg(2)"), *parse_expr("-2"));
}

// Random trees over the operators that print; a tree's text must parse back to the same tree.
Expr random_tree(std::mt19937_64& random, int depth) {
  const int choice = static_cast<int>(random() % (depth <= 0 ? 1 : 8));
  const auto child = [&] { return random_tree(random, depth - 1); };
  switch (choice) {
    case 0: return Expr{Fraction(static_cast<std::int64_t>(random() % 1000)), "num", {}};
    case 1: return Expr{std::nullopt, "neg", {child()}};
    case 2: return Expr{std::nullopt, "sqrt", {child()}};
    default: {
      static constexpr const char* kOps[] = {"+", "-", "*", "/", "^"};
      Expr left = child();
      Expr right = child();
      return Expr{std::nullopt, kOps[random() % 5], {std::move(left), std::move(right)}};
    }
  }
}

TEST(Expressions, PrintedTreesParseBackEqual) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 3000; ++i) {
    const Expr tree = random_tree(random, 6);
    auto text = generateExpr(tree);
    ASSERT_TRUE(text.ok());
    auto back = parse_expr(*text);
    ASSERT_TRUE(back.ok()) << *text << ": " << back.failure().message;
    EXPECT_TRUE(*back == tree) << *text;
  }
}

// `first` followed by `count` copies of `piece`.
std::string chain(std::string_view first, std::string_view piece, int count) {
  std::string text(first);
  for (int i = 0; i < count; ++i) text += piece;
  return text;
}
std::string repeat(std::string_view piece, int count) { return chain("", piece, count); }

TEST(Expressions, NestingIsLimitedWithoutExhaustingTheStack) {
  const std::string too_deep = "Expression nested too deeply: more than 256 levels";
  for (const std::string& text : {repeat("(", 100000) + "1" + repeat(")", 100000), repeat("(", 100000),
                                  repeat("-", 100000) + "1", repeat("sqrt(", 100000), chain("2", "^2", 100000),
                                  repeat("(1+", kMaxExprDepth + 1) + "1" + repeat(")", kMaxExprDepth + 1)})
    EXPECT_EQ(parse_error(text), too_deep) << text.substr(0, 20);
  // The limit itself is accepted, and printing such a tree works.
  EXPECT_EQ(printed(repeat("(", kMaxExprDepth) + "7" + repeat(")", kMaxExprDepth)), "7");
  EXPECT_EQ(parse_error(repeat("(", kMaxExprDepth + 1) + "7" + repeat(")", kMaxExprDepth + 1)), too_deep);
  // A hand-made tree that recurses beyond every parsed one is refused by the printer and the
  // evaluator.
  Expr deep{Fraction(1), "num", {}};
  for (int i = 0; i < kMaxExprRecursion + 5; ++i) deep = Expr{std::nullopt, "+", {Expr{Fraction(1), "num", {}}, std::move(deep)}};
  EXPECT_EQ(generateExpr(deep).failure().message, too_deep);
  EXPECT_EQ(eval_expr(deep).failure().message, too_deep);
}

// A chain of one operator is no nesting: 100,000 terms parse, print, compare, copy, evaluate
// and free, here and on a pool worker's smaller stack.
TEST(Expressions, LongChainsOfOneOperatorWork) {
  const int terms = 100000;
  const std::string texts[] = {chain("1", "+1", terms - 1), chain("2", "*1", terms - 1), chain("1", "-1", terms - 1)};
  const std::string values[] = {"100000", "2", "-99998"};
  std::vector<int> ok(3, 0);
  pool::for_each(ok.size(), [&](std::size_t i) {
    auto expr = parse_expr(texts[i]);
    if (!expr) return;
    const Expr copy = *expr;
    auto text = generateExpr(*expr);
    auto value = eval_expr(copy);
    auto difference = value ? sub(*value, *eval_expr(*parse_expr(values[i]))) : value;
    ok[i] = copy == *expr && text && *text == texts[i] && difference && difference->is_zero();
  });
  EXPECT_EQ(ok, std::vector<int>(3, 1));
  // A chain inside the deepest accepted nesting.
  const std::string nested = repeat("(", kMaxExprDepth) + texts[0] + repeat(")", kMaxExprDepth);
  EXPECT_EQ(printed(nested), texts[0]);
}

TEST(Expressions, DeepestTextsWorkOnPoolWorkers) {
  // Worker threads have smaller stacks than the main thread; the deepest accepted texts must
  // parse, print and evaluate there too.
  const std::string texts[] = {
      std::string(kMaxExprDepth, '(') + "1" + std::string(kMaxExprDepth, ')'),
      std::string(kMaxExprDepth - 1, '-') + "1",
      repeat("(1+2*", kMaxExprDepth) + "1" + repeat(")", kMaxExprDepth),
  };
  std::vector<int> ok(15, 0);
  pool::for_each(ok.size(), [&](std::size_t i) {
    const std::string& text = texts[i % 3];
    auto expr = parse_expr(text);
    ok[i] = expr.ok() && generateExpr(*expr).ok() && eval_expr(*expr).ok();
  });
  EXPECT_EQ(ok, std::vector<int>(15, 1));
}

TEST(Expressions, ArbitraryBytesNeverCrash) {
  std::mt19937_64 random(11);
  const std::string alphabet = "()+-*/^.0123456789 sqrtcbx_$,\xC3\xA9\xFF";
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    const std::size_t length = random() % 24;
    for (std::size_t k = 0; k < length; ++k) text += alphabet[random() % alphabet.size()];
    auto expr = parse_expr(text);
    if (!expr) continue;
    auto out = generateExpr(*expr);
    if (!out) continue;
    // Canonical text is a fixed point.
    EXPECT_EQ(printed(*out), *out) << text;
  }
}

TEST(Evaluation, TreesThatTheParserNeverMakesFailInOrder) {
  EXPECT_EQ(eval_expr(Expr{std::nullopt, "+", {}}).failure().message, "+ must have two operands");
  EXPECT_EQ(eval_expr(Expr{std::nullopt, "neg", {}}).failure().message, "neg must have an argument");
}

TEST(Evaluation, OperandsShareAField) {
  const auto value = [](std::string_view text) { return *eval_expr(*parse_expr(text)); };
  EXPECT_TRUE(value("sqrt(2)*sqrt(2)-2").is_zero());
  EXPECT_TRUE(value("sqrt(8)-2*sqrt(2)").is_zero());
  EXPECT_TRUE(value("(sqrt(2)+sqrt(3))^2-5-2*sqrt(6)").is_zero());
  EXPECT_EQ(value("sqrt(4)+1").degree(), 0);
  EXPECT_EQ(value("sqrt(2)+sqrt(3)").field()->degree(), 4);
  EXPECT_EQ(value("2^(3/2)").sign(), 1);
  EXPECT_EQ(value("-2^2").coefficients()[0], Fraction(-4));
}

TEST(Shapes, TextForms) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"C$1/3", "C$1/3"},
      {"1, 0, 0$1/2", "1,0,0$1/2"},
      {"1,0,0$-1/2", "1,0,0$-1/2"},
      {"C,D$1", "C,D$1"},
      {"a,b,c,d$(2)", "a,b,c,d$2"},
      {"C$0.5", "C$1/2"},
  };
  for (const auto& [text, canonical] : cases) {
    auto shape = parse_shape(text);
    ASSERT_TRUE(shape.ok()) << text << ": " << shape.failure().message;
    EXPECT_EQ(*shape_text(*shape), canonical);
  }
  EXPECT_TRUE(std::holds_alternative<PlaneShape>(*parse_shape("1,0,0$1")));
  EXPECT_TRUE(std::holds_alternative<PolyhedronShape>(*parse_shape("1,0$1")));
  EXPECT_EQ(std::get<PolyhedronShape>(*parse_shape("C,D$1")).name, "C,D");
  EXPECT_FALSE(*parse_shape("C$1/2") == *parse_shape("C$2/4"));
  EXPECT_FALSE(*parse_shape("1,0,0$1") == *parse_shape("A$1"));
  const std::pair<std::string_view, std::string_view> failures[] = {
      {"C", "expected $"},
      {"C$1$2", "expected $"},
      {"$1", "Unexpected end of expression"},
      {"C$", "Unexpected end of expression"},
      {"1,,0$1", "Unexpected end of expression"},
      {"C$1#", "Unexpected character <code>#</code>"},
      {"1,2x,0$(", "Unexpected end of expression"},  // the size is read before the coefficients
  };
  for (const auto& [text, message] : failures) EXPECT_EQ(parse_shape(text).failure().message, message) << text;
  EXPECT_EQ(shape_text(*parse_shape("C$cbrt(2)")).failure().message, "generateExpr: invalid operation 'cbrt'");
}

TEST(Recipes, QueryStrings) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"?shell=C$1&cut=C$1/3", "?shell=C$1&cut=C$1/3"},
      {"?cut=C$1/3&shell=C$1", "?shell=C$1&cut=C$1/3"},
      {"?shell=C%241", "?shell=C$1"},
      {"%3Fshell%3DC%241%26cut%3dC%24%31", "?shell=C$1&cut=C$1"},
      {"?shell=C$1+1", "?shell=C$1+1"},
      {"?shell=C$1&shell=C$1&cut=O$0", "?shell=C$1&shell=C$1&cut=O$0"},
      {"?cut=1,%200,0$-1/2", "?cut=1,0,0$-1/2"},
  };
  for (const auto& [text, canonical] : cases) {
    auto recipe = parse_recipe(text);
    ASSERT_TRUE(recipe.ok()) << text << ": " << recipe.failure().message;
    EXPECT_EQ(*query_text(*recipe), canonical);
  }
  EXPECT_TRUE(parse_recipe("")->shell.empty());
  EXPECT_EQ(*query_text(Recipe{}), "?");
  const std::pair<std::string_view, std::string_view> failures[] = {
      {"?", "expected exactly one ="},
      {"?shell=C$1&", "expected exactly one ="},
      {"?shell", "expected exactly one ="},
      {"?shell=C$1=2", "expected exactly one ="},
      {"?shell=C$1%3D2", "expected exactly one ="},
      {"shell=C$1", "expected ?"},
      {"%20?shell=C$1", "expected ?"},
      {"?shell=C", "expected $"},
      {"?shell=C$1$2", "expected $"},
      {"?shell=C$1%", "URI malformed"},
      {"?shell=C$1%2", "URI malformed"},
      {"?shell=C$1%G1", "URI malformed"},
      {"?shell=C$1%FF", "URI malformed"},
      {"?shell=C$1%C3", "URI malformed"},
      {"?shell=C$1%C3%A9", "Unexpected character <code>\xC3\xA9</code>"},
      {"?shell=C$(", "Unexpected end of expression"},
  };
  for (const auto& [text, message] : failures) {
    auto recipe = parse_recipe(text);
    ASSERT_FALSE(recipe.ok()) << text;
    EXPECT_EQ(recipe.failure().kind, FailureKind::Parse);
    EXPECT_EQ(recipe.failure().message, message) << text;
  }
}

TEST(Recipes, UnknownKeysWarnAndAreSkipped) {
  testing::internal::CaptureStderr();
  auto recipe = parse_recipe("?colour=red&shell=C$1&=x&shell=C$(");
  const std::string warnings = testing::internal::GetCapturedStderr();
  EXPECT_EQ(warnings, "warning: ignoring unknown key colour\nwarning: ignoring unknown key \n");
  EXPECT_EQ(recipe.failure().message, "Unexpected end of expression");
}

TEST(Recipes, QuotedText) {
  EXPECT_EQ(quoted_text("C,D"), "\"C,D\"");
  EXPECT_EQ(quoted_text("a\"b\\c"), "\"a\\\"b\\\\c\"");
  EXPECT_EQ(quoted_text("\n\t\r"), "\"\\n\\t\\r\"");
  EXPECT_EQ(quoted_text(std::string_view("\0\x1b\x7f", 3)), "\"\\0\\u{1b}\\u{7f}\"");
  EXPECT_EQ(quoted_text("\xC2\x85\xC3\xA9"), "\"\\u{85}\xC3\xA9\"");
}

}  // namespace
}  // namespace tv
