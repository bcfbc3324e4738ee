// Shapes and recipe query strings: `C$1/3` (a polyhedron code and a size), `1,0,0$-1/2` (the
// plane a*x + b*y + c*z + d = 0 by its four coefficients) and `?shell=C$1&cut=C$1/3`.
//
// A query string is percent-decoded as a whole before it is split, so an escaped `$`, `&` or
// `=` acts like the plain character; `+` stays a plus. Printing goes the other way without
// any escaping, shells before cuts, each expression in its canonical form.
#include <cstdio>

#include "num/siphash.hpp"
#include "parse.hpp"

namespace tv {
namespace {

// The pieces between separators, empty pieces included: "a&&b" has three.
std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  std::size_t start = 0;
  for (std::size_t end; (end = text.find(separator, start)) != std::string_view::npos; start = end + 1)
    pieces.push_back(text.substr(start, end - start));
  pieces.push_back(text.substr(start));
  return pieces;
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

Result<std::string> percent_decode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    if (i + 2 >= text.size()) return parse_failure("URI malformed");
    const int high = hex_digit(text[i + 1]);
    const int low = hex_digit(text[i + 2]);
    if (high < 0 || low < 0) return parse_failure("URI malformed");
    out += static_cast<char>(high * 16 + low);
    i += 2;
  }
  if (!is_valid_utf8(out)) return parse_failure("URI malformed");
  return out;
}

void warn_unknown_key(std::string_view key) {
  // One write, so that lines of concurrent parses do not interleave.
  const std::string line = "warning: ignoring unknown key " + std::string(key) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace

Result<Shape> parse_shape(std::string_view text) {
  const std::vector<std::string_view> sides = split(text, '$');
  if (sides.size() != 2) return parse_failure("expected $");
  TV_TRY(Expr right, parse_expr(sides[1]));
  std::vector<Expr> coefficients;
  for (std::string_view piece : split(sides[0], ',')) {
    TV_TRY(Expr coefficient, parse_expr(piece));
    coefficients.push_back(std::move(coefficient));
  }
  if (coefficients.size() == 3)
    return PlaneShape{std::move(coefficients[0]), std::move(coefficients[1]), std::move(coefficients[2]),
                      std::move(right)};
  return PolyhedronShape{std::string(sides[0]), std::move(right)};
}

Result<std::string> shape_text(const Shape& shape) {
  if (const auto* polyhedron = std::get_if<PolyhedronShape>(&shape)) {
    TV_TRY(std::string size, generateExpr(polyhedron->size));
    return polyhedron->name + "$" + size;
  }
  const auto& plane = std::get<PlaneShape>(shape);
  std::string text;
  for (const Expr* coefficient : {&plane.a, &plane.b, &plane.c, &plane.d}) {
    TV_TRY(std::string part, generateExpr(*coefficient));
    if (!text.empty()) text += coefficient == &plane.d ? '$' : ',';
    text += part;
  }
  return text;
}

Result<Recipe> parse_recipe(std::string_view query) {
  TV_TRY(const std::string text, percent_decode(query));
  Recipe recipe;
  if (text.empty()) return recipe;
  if (text[0] != '?') return parse_failure("expected ?");
  for (std::string_view piece : split(std::string_view(text).substr(1), '&')) {
    const std::vector<std::string_view> pair = split(piece, '=');
    if (pair.size() != 2) return parse_failure("expected exactly one =");
    const std::string_view key = pair[0];
    if (key != "shell" && key != "cut") {
      warn_unknown_key(key);
      continue;
    }
    TV_TRY(Shape shape, parse_shape(pair[1]));
    (key == "shell" ? recipe.shell : recipe.cuts).push_back(std::move(shape));
  }
  return recipe;
}

Result<std::string> query_text(const Recipe& recipe) {
  std::string text = "?";
  const auto append = [&](const std::vector<Shape>& shapes, std::string_view key) -> Status {
    for (const Shape& shape : shapes) {
      TV_TRY(std::string part, shape_text(shape));
      if (text.size() > 1) text += '&';
      text.append(key).append(part);
    }
    return {};
  };
  TV_CHECK(append(recipe.shell, "shell="));
  TV_CHECK(append(recipe.cuts, "cut="));
  return text;
}

std::string quoted_plain(std::string_view text) {
  std::string out = "\"";
  for (char ch : text) {
    if (ch == '"' || ch == '\\') out += '\\';
    out += ch;
  }
  return out + "\"";
}

std::string quoted_text(std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  const auto escape_code = [](std::string& out, unsigned code) {
    out += "\\u{";
    if (code >= 16) out += kHex[code >> 4];
    out += kHex[code & 15];
    out += '}';
  };
  std::string out = "\"";
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    switch (byte) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      case '\0': out += "\\0"; break;
      default:
        if (byte < 0x20 || byte == 0x7F) {
          escape_code(out, byte);
        } else if (byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0 &&
                   static_cast<unsigned char>(text[i + 1]) >= 0x80) {
          escape_code(out, static_cast<unsigned char>(text[++i]));  // a C1 control character
        } else {
          out += text[i];
        }
    }
  }
  return out + '"';
}

std::int64_t canonical_text_hash(std::string_view text) {
  SipHasher13 hasher;
  hasher.write(text.data(), text.size());
  const unsigned char end = 0xFF;
  hasher.write(&end, 1);
  const auto hash = static_cast<std::int64_t>(hasher.finish());
  return hash == -1 ? -2 : hash;
}

}  // namespace tv
