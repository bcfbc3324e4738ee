// Grips, stops and exact turning; see movement.hpp for the geometry.
#include "movement.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <utility>

#include "sort.hpp"

namespace tv {

namespace {

AlgebraicNumber dot(const Vector3& a, const Vector3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Vector3 cross(const Vector3& a, const Vector3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

Vector3 normal_of(const Plane& p) { return {p.a, p.b, p.c}; }

Vector3 negated(const Vector3& v) { return {-v[0], -v[1], -v[2]}; }

bool has_zero_axis(const Quaternion& q) { return q.x.is_zero() && q.y.is_zero() && q.z.is_zero(); }

void append_number(std::string& key, const AlgebraicNumber& x) {
  if (x.degree() > 0) {
    char field[2 + 2 * sizeof(void*) + 1];
    std::snprintf(field, sizeof field, "%p", static_cast<const void*>(x.field().get()));
    key += field;
  }
  key += '#';
  for (const Fraction& c : x.coefficients()) {
    key += c.to_string();
    key += ',';
  }
}

void append_numbers(std::string& key, std::initializer_list<const AlgebraicNumber*> numbers) {
  key += '[';
  for (const AlgebraicNumber* x : numbers) {
    append_number(key, *x);
    key += ';';
  }
  key += ']';
}

// (a, b, c, d) or its negation, whichever has its first non-zero normal coordinate positive.
Plane in_standard_sign(Plane plane) {
  for (const AlgebraicNumber* f : {&plane.a, &plane.b, &plane.c}) {
    const int s = f->sign();
    if (s > 0) return plane;
    if (s < 0) return tv::negated(plane);
  }
  return plane;
}

struct Candidate {
  const Plane* plane;  // in the set's cut memo, which only grows and never moves an entry
  std::uint32_t plane_id;
  std::uint32_t normal_id;
};

std::uint64_t pair_key(std::uint32_t a, std::uint32_t b) { return (std::uint64_t{a} << 32) | b; }

// One look at a piece set as it stands. Each piece's state (its index and orientation key) is
// named once per scan by a small id; plane and normal keys were named when the piece's cut
// planes were first met. The memos of the set are keyed by pairs of these ids, so a state seen
// before costs integer lookups only.
class Scan {
 public:
  explicit Scan(PieceSet& set) : set_(set), state_ids_(set.pieces.size()) {}

  // The rotated interior facet planes of every piece, once each, in first-seen order.
  Result<std::vector<Candidate>> candidates() {
    std::vector<Candidate> candidates;
    std::vector<bool> seen;
    for (std::uint32_t i = 0; i < set_.pieces.size(); ++i) {
      TV_TRY(const auto* planes, cut_planes_of(i));
      for (const CutPlane& cut : *planes) {
        if (cut.plane_id >= seen.size()) seen.resize(cut.plane_id + 1);
        if (seen[cut.plane_id]) continue;
        seen[cut.plane_id] = true;
        candidates.push_back({&cut.plane, cut.plane_id, cut.normal_id});
      }
    }
    return candidates;
  }

  // +1 (at or beyond the plane), -1 (behind it) or 0 (straddling it).
  Result<int> side(std::uint32_t i, const Candidate& candidate) {
    const std::uint32_t state = state_id(i);
    const std::uint64_t side_key = pair_key(candidate.plane_id, state);
    if (const auto hit = set_.side_memo.find(side_key); hit != set_.side_memo.end()) return hit->second;
    TV_TRY(const auto extent, extent_of(i, candidate, pair_key(candidate.normal_id, state)));
    const AlgebraicNumber t = -candidate.plane->d;
    int side = +1;
    if ((t - extent.first).sign() > 0) side = (t - extent.second).sign() < 0 ? 0 : -1;
    set_.side_memo.emplace(side_key, static_cast<std::int8_t>(side));
    return side;
  }

 private:
  std::uint32_t state_id(std::uint32_t i) {
    auto& id = state_ids_[i];
    if (!id) id = set_.key_id(std::to_string(i) + '/' + orientation_key(set_.pieces[i].orientation));
    return *id;
  }

  // The planes of the piece's interior facets as the piece now stands, in standard sign.
  Result<const std::vector<CutPlane>*> cut_planes_of(std::uint32_t i) {
    const std::uint32_t state = state_id(i);
    if (const auto hit = set_.cut_memo.find(state); hit != set_.cut_memo.end()) return &hit->second;
    const Piece& piece = set_.pieces[i];
    std::vector<CutPlane> planes;
    for (const Facet& facet : piece.facets) {
      if (!facet.interior) continue;
      TV_TRY(Plane rotated, rotated_plane(piece.orientation, facet.plane));
      rotated = in_standard_sign(std::move(rotated));
      const std::uint32_t plane_id = set_.key_id(plane_key(rotated));
      const std::uint32_t normal_id = set_.key_id(normal_key(rotated));
      planes.push_back({std::move(rotated), plane_id, normal_id});
    }
    return &set_.cut_memo.emplace(state, std::move(planes)).first->second;
  }

  // The lowest and highest of n . v over the piece's vertices, n the normal carried back
  // into the piece's own frame.
  Result<std::pair<AlgebraicNumber, AlgebraicNumber>> extent_of(std::uint32_t i, const Candidate& candidate,
                                                                std::uint64_t key) {
    if (const auto hit = set_.extent_memo.find(key); hit != set_.extent_memo.end()) return hit->second;
    const Piece& piece = set_.pieces[i];
    TV_ENSURE(!piece.vertices.empty(), "a piece always has at least one vertex");
    TV_TRY(const Vector3 n, rotate(conjugate(piece.orientation), normal_of(*candidate.plane)));
    AlgebraicNumber lowest = dot(n, {piece.vertices[0].x, piece.vertices[0].y, piece.vertices[0].z});
    AlgebraicNumber highest = lowest;
    for (std::size_t k = 1; k < piece.vertices.size(); ++k) {
      const Vertex& v = piece.vertices[k];
      AlgebraicNumber value = dot(n, {v.x, v.y, v.z});
      if ((value - lowest).sign() < 0) {
        lowest = std::move(value);
      } else if ((value - highest).sign() > 0) {
        highest = std::move(value);
      }
    }
    auto [place, inserted] = set_.extent_memo.emplace(key, std::make_pair(std::move(lowest), std::move(highest)));
    return place->second;
  }

  PieceSet& set_;
  std::vector<std::optional<std::uint32_t>> state_ids_;
};

// The candidates that no piece of `subset` straddles, with the subset sorted onto their sides.
Result<std::vector<GripLayer>> sort_onto_sides(Scan& scan, const std::vector<Candidate>& candidates,
                                               const std::vector<std::uint32_t>& subset, bool both_sides) {
  std::vector<GripLayer> layers;
  for (const Candidate& candidate : candidates) {
    GripLayer layer{*candidate.plane, {}, {}};
    bool straddled = false;
    for (const std::uint32_t i : subset) {
      TV_TRY(const int side, scan.side(i, candidate));
      if (side == 0) {
        straddled = true;
        break;
      }
      (side > 0 ? layer.moving : layer.fixed).push_back(i);
    }
    if (straddled) continue;
    if (both_sides && (layer.moving.empty() || layer.fixed.empty())) continue;
    layers.push_back(std::move(layer));
  }
  return layers;
}

std::vector<std::uint32_t> all_pieces(const PieceSet& set) {
  std::vector<std::uint32_t> indices(set.pieces.size());
  for (std::uint32_t i = 0; i < indices.size(); ++i) indices[i] = i;
  return indices;
}

// The cuts of `subset`: those dividing it, or, when none does, every cut it does not straddle.
Result<std::vector<GripLayer>> cuts_of(Scan& scan, const std::vector<Candidate>& candidates,
                                       const std::vector<std::uint32_t>& subset) {
  TV_TRY(auto dividing, sort_onto_sides(scan, candidates, subset, true));
  if (!dividing.empty()) return dividing;
  return sort_onto_sides(scan, candidates, subset, false);
}

// Steps from `angle` by whole turns until it has the sign of the direction.
double signed_angle(double angle, std::int64_t direction) {
  if (direction < 0) {
    while (angle >= 0.0) angle -= kFullTurn;
  } else if (direction >= 1) {
    while (angle <= 0.0) angle += kFullTurn;
  }
  return angle;
}

}  // namespace

Quaternion product(const Quaternion& p, const Quaternion& q) {
  return {p.w * q.x + p.x * q.w + p.y * q.z - p.z * q.y, p.w * q.y - p.x * q.z + p.y * q.w + p.z * q.x,
          p.w * q.z + p.x * q.y - p.y * q.x + p.z * q.w, p.w * q.w - p.x * q.x - p.y * q.y - p.z * q.z};
}

Quaternion conjugate(const Quaternion& q) { return {-q.x, -q.y, -q.z, q.w}; }

AlgebraicNumber norm2(const Quaternion& q) { return q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w; }

Quaternion scaled(const Quaternion& q, const AlgebraicNumber& s) { return {q.x * s, q.y * s, q.z * s, q.w * s}; }

// q (v, 0) q* = (w^2 - u.u) v + 2 (u.v) u + 2 w (u x v) for q = (u, w): the vector part of the
// product in the quaternion form, with fewer multiplications.
Result<Vector3> rotate(const Quaternion& q, const Vector3& v) {
  if (has_zero_axis(q)) {
    if (q.w.is_zero()) return range_failure("Division by zero: " + q.w.text());
    return v;
  }
  const Vector3 u{q.x, q.y, q.z};
  const AlgebraicNumber uu = dot(u, u);
  TV_TRY(const AlgebraicNumber inverse_norm, (uu + q.w * q.w).inverse());
  const AlgebraicNumber along = (q.w * q.w - uu) * inverse_norm;
  const AlgebraicNumber radial = AlgebraicNumber::from_int(q.w.field(), 2) * dot(u, v) * inverse_norm;
  const AlgebraicNumber twice_w = AlgebraicNumber::from_int(q.w.field(), 2) * q.w * inverse_norm;
  const Vector3 turned = cross(u, v);
  Vector3 result = v;
  for (int k = 0; k < 3; ++k) result[k] = along * v[k] + radial * u[k] + twice_w * turned[k];
  return result;
}

Result<Plane> rotated_plane(const Quaternion& q, const Plane& plane) {
  TV_TRY(const Vector3 n, rotate(q, normal_of(plane)));
  return Plane{n[0], n[1], n[2], plane.d};
}

std::string number_key(const AlgebraicNumber& x) {
  std::string key;
  append_number(key, x);
  return key;
}

std::string normal_key(const Plane& plane) {
  std::string key;
  append_numbers(key, {&plane.a, &plane.b, &plane.c});
  return key;
}

std::string plane_key(const Plane& plane) {
  std::string key = "[";
  key += normal_key(plane);
  key += ',';
  append_number(key, plane.d);
  key += ']';
  return key;
}

std::string orientation_key(const Quaternion& q) {
  std::string key;
  append_numbers(key, {&q.x, &q.y, &q.z, &q.w});
  return key;
}

Result<std::vector<GripLayer>> candidate_planes(PieceSet& pieces, const std::vector<std::uint32_t>& subset,
                                                bool both_sides) {
  Scan scan(pieces);
  TV_TRY(const auto candidates, scan.candidates());
  return sort_onto_sides(scan, candidates, subset, both_sides);
}

Result<std::vector<GripLayer>> candidate_planes(PieceSet& pieces, bool both_sides) {
  return candidate_planes(pieces, all_pieces(pieces), both_sides);
}

Result<std::vector<GripLayer>> derive_grips(PieceSet& pieces) {
  TV_TRY(auto layers, candidate_planes(pieces, true));
  std::vector<GripLayer> grips;
  grips.reserve(layers.size());
  for (GripLayer& layer : layers) {
    const int s = layer.plane.d.sign();
    GripLayer flip{tv::negated(layer.plane), layer.fixed, layer.moving};
    if (s > 0) {
      grips.push_back(std::move(flip));
      continue;
    }
    grips.push_back(std::move(layer));
    if (s == 0) grips.push_back(std::move(flip));
  }
  TV_CHECK(exact_sort(grips, [](const GripLayer& g, const GripLayer& h) -> Result<int> {
    return (h.plane.d - g.plane.d).sign();
  }));
  return grips;
}

Result<std::vector<Quaternion>> stops_of(PieceSet& pieces, const GripLayer& grip) {
  Scan scan(pieces);
  TV_TRY(const auto candidates, scan.candidates());
  TV_TRY(const auto layer_cuts, cuts_of(scan, candidates, grip.moving));
  TV_TRY(const auto rest_cuts, cuts_of(scan, candidates, grip.fixed));
  const Vector3 n = normal_of(grip.plane);
  const AlgebraicNumber nn = dot(n, n);
  InsertionOrderedMap<std::string, std::optional<Quaternion>> rotations;
  const auto enter = [&](const Quaternion& q) {
    auto& entry = rotations[orientation_key(q)];
    if (!entry) entry = q;
  };
  for (const GripLayer& p : layer_cuts) {
    const Vector3 pn = normal_of(p.plane);
    const AlgebraicNumber x = dot(n, pn);
    if (x * x == nn * dot(pn, pn)) continue;  // parallel to the axis: it turns into itself
    for (const GripLayer& q : rest_cuts) {
      const Vector3 qn = normal_of(q.plane);
      const AlgebraicNumber y = dot(n, qn);
      if (p.plane.d == q.plane.d && x == y) {
        TV_TRY(const Quaternion r, rotation_between(n, pn, qn));
        enter(r);
      }
      if (-p.plane.d == q.plane.d && -x == y) {
        TV_TRY(const Quaternion r, rotation_between(n, pn, negated(qn)));
        enter(r);
      }
    }
  }
  struct Keyed {
    AlgebraicNumber key;
    Quaternion rotation;
  };
  std::vector<Keyed> keyed;
  keyed.reserve(rotations.size());
  for (auto& [text, q] : rotations) {
    TV_TRY(AlgebraicNumber key, stop_key(*q));
    keyed.push_back({std::move(key), std::move(*q)});
  }
  TV_CHECK(exact_sort(keyed, [](const Keyed& a, const Keyed& b) -> Result<int> { return (a.key - b.key).sign(); }));
  std::vector<Quaternion> stops;
  stops.reserve(keyed.size());
  for (Keyed& k : keyed) stops.push_back(std::move(k.rotation));
  return stops;
}

Result<Quaternion> rotation_between(const Vector3& axis, const Vector3& from, const Vector3& to) {
  const AlgebraicNumber u = dot(axis, cross(from, to));
  if (u.sign() == 0) {
    if (dot(from, to).sign() > 0) return Quaternion::identity();
    return Quaternion{axis[0], axis[1], axis[2], AlgebraicNumber::zero(u.field())};
  }
  TV_TRY(const AlgebraicNumber cot, (dot(from, from) - dot(from, to)).inverse());
  return Quaternion{axis[0], axis[1], axis[2], u * cot};
}

Result<AlgebraicNumber> stop_key(const Quaternion& q) {
  TV_TRY(const AlgebraicNumber inverse_norm, norm2(q).inverse());
  return AlgebraicNumber::one(q.w.field()) - q.w * q.w.abs() * inverse_norm;
}

double stop_angle(const Quaternion& q) {
  const double x = q.x.to_f64(), y = q.y.to_f64(), z = q.z.to_f64(), w = q.w.to_f64();
  const double cosine = w / std::sqrt(x * x + y * y + z * z + w * w);
  return 2.0 * std::acos(std::clamp(cosine, -1.0, 1.0));
}

bool is_identity(const Quaternion& q) {
  return q.x.sign() == 0 && q.y.sign() == 0 && q.z.sign() == 0 && q.w.sign() > 0;
}

ChosenTurn choose_direction(const std::vector<Quaternion>& stops, std::int64_t direction) {
  if (stops.empty()) return {Quaternion::identity(), kFullTurn};
  const auto turning = [](const Quaternion& q) { return !is_identity(q); };
  const Quaternion* chosen = nullptr;
  if (direction >= 0) {
    const auto first = std::find_if(stops.begin(), stops.end(), turning);
    chosen = first != stops.end() ? &*first : &stops.back();
  } else {
    const auto last = std::find_if(stops.rbegin(), stops.rend(), turning);
    chosen = last != stops.rend() ? &*last : &stops.front();
  }
  return {*chosen, signed_angle(stop_angle(*chosen), direction)};
}

Status apply_rotation(std::vector<Piece>& pieces, const std::vector<std::uint32_t>& indices, const Quaternion& r) {
  for (const std::uint32_t i : indices) {
    const Quaternion q = product(r, pieces[i].orientation);
    AlgebraicNumber s = q.w.abs() + q.x.abs() + q.y.abs() + q.z.abs();
    if (q.w.sign() < 0) s = -s;
    TV_TRY(const AlgebraicNumber inverse, s.inverse());
    pieces[i].orientation = scaled(q, inverse);
  }
  return {};
}

namespace {

// "+[1/1,0/1,-1/2]" for a normal whose first non-zero coordinate p is positive: the sign of p
// and the normal divided by p, so parallel normals share a key and opposite ones do not.
Result<std::string> axis_key(const Plane& plane) {
  const AlgebraicNumber* first = nullptr;
  for (const AlgebraicNumber* x : {&plane.a, &plane.b, &plane.c}) {
    if (x->sign() != 0) {
      first = x;
      break;
    }
  }
  if (first == nullptr) return state_failure("a grip has a degenerate axis");
  TV_TRY(const AlgebraicNumber inverse, first->inverse());
  std::string key(1, first->sign() > 0 ? '+' : '-');
  const AlgebraicNumber a = plane.a * inverse, b = plane.b * inverse, c = plane.c * inverse;
  append_numbers(key, {&a, &b, &c});
  return key;
}

// 0 -> A, 25 -> Z, 26 -> AA: bijective base 26.
std::string axis_label(std::size_t n) {
  std::string label;
  while (true) {
    label.insert(label.begin(), static_cast<char>('A' + n % 26));
    if (n < 26) return label;
    n = n / 26 - 1;
  }
}

std::optional<std::size_t> name_index(const std::vector<std::string>& names, std::string_view name) {
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) return std::nullopt;
  return static_cast<std::size_t>(found - names.begin());
}

// The length of the UTF-8 white space at `at`, or 0.
std::size_t white_space_at(std::string_view text, std::size_t at) {
  const auto byte = [&](std::size_t k) { return at + k < text.size() ? static_cast<unsigned char>(text[at + k]) : 0u; };
  const unsigned b0 = byte(0);
  if ((b0 >= 0x09 && b0 <= 0x0D) || b0 == 0x20) return 1;
  if (b0 == 0xC2 && (byte(1) == 0x85 || byte(1) == 0xA0)) return 2;
  if (b0 == 0xE1 && byte(1) == 0x9A && byte(2) == 0x80) return 3;  // U+1680
  if (b0 == 0xE2 && byte(1) == 0x80) {
    const unsigned b2 = byte(2);
    if (b2 <= 0x8A || b2 == 0xA8 || b2 == 0xA9 || b2 == 0xAF) return 3;  // U+2000-200A, 2028, 2029, 202F
  }
  if (b0 == 0xE2 && byte(1) == 0x81 && byte(2) == 0x9F) return 3;  // U+205F
  if (b0 == 0xE3 && byte(1) == 0x80 && byte(2) == 0x80) return 3;  // U+3000
  return 0;
}

std::vector<std::string_view> white_space_tokens(std::string_view text) {
  std::vector<std::string_view> tokens;
  std::size_t start = 0, at = 0;
  while (at < text.size()) {
    if (const std::size_t space = white_space_at(text, at); space > 0) {
      if (at > start) tokens.push_back(text.substr(start, at - start));
      at += space;
      start = at;
    } else {
      ++at;
    }
  }
  if (at > start) tokens.push_back(text.substr(start, at - start));
  return tokens;
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (std::size_t k = 0; k < names.size(); ++k) text += (k ? ", " : "") + names[k];
  return text;
}

// "{before}{token}{after}" as a parse failure.
Failure token_failure(const char* before, std::string_view token, const std::string& after) {
  std::string message = before;
  message += token;
  message += after;
  return parse_failure(std::move(message));
}

Result<Move> parse_move(const std::vector<std::string>& names, std::string_view token) {
  const bool inverse = !token.empty() && token.back() == '\'';
  const std::string_view stem = inverse ? token.substr(0, token.size() - 1) : token;
  if (const auto k = name_index(names, stem)) return Move{2 * *k + inverse, 1};
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  std::size_t digits = 0;
  while (digits < stem.size() && is_digit(stem[stem.size() - 1 - digits])) ++digits;
  for (std::size_t length = 1; length <= digits; ++length) {
    const auto k = name_index(names, stem.substr(0, stem.size() - length));
    if (!k) continue;
    std::uint64_t count = 0;
    for (const char digit : stem.substr(stem.size() - length)) {
      count = count * 10 + static_cast<std::uint64_t>(digit - '0');
      if (count > 0xFFFFFFFFull) return token_failure("move '", token, "' has an unreadable repeat count");
    }
    if (count == 0) return token_failure("move '", token, "' repeats zero times");
    return Move{2 * *k + inverse, static_cast<std::uint32_t>(count)};
  }
  return token_failure("'", token, "' is not a move of this puzzle. Its grips are " + joined(names));
}

}  // namespace

Result<GripNames> name_grips(const std::vector<GripLayer>& grips) {
  InsertionOrderedMap<std::string, std::vector<std::size_t>> axes;
  for (std::size_t k = 0; k < grips.size(); ++k) {
    TV_TRY(const std::string key, axis_key(grips[k].plane));
    axes[key].push_back(k);
  }
  GripNames named;
  named.names.resize(grips.size());
  std::size_t axis = 0;
  for (const auto& [key, members] : axes) {
    const std::string label = axis_label(axis++);
    for (std::size_t j = 0; j < members.size(); ++j) {
      named.names[members[j]] = members.size() == 1 ? label : label + std::to_string(j + 1);
    }
  }
  for (const GripLayer& grip : grips) named.planes.push_back(grip.plane);
  return named;
}

std::string action_name(const std::vector<std::string>& names, std::uint64_t action) {
  return names[action / 2] + (action % 2 ? "'" : "");
}

std::optional<std::uint64_t> action_index(const std::vector<std::string>& names, std::string_view name) {
  const bool inverse = !name.empty() && name.back() == '\'';
  const auto k = name_index(names, inverse ? name.substr(0, name.size() - 1) : name);
  if (!k) return std::nullopt;
  return 2 * *k + inverse;
}

std::optional<std::size_t> current_grip(const std::vector<Plane>& action_planes, const std::vector<GripLayer>& grips,
                                        std::uint64_t action) {
  if (action / 2 >= action_planes.size()) return std::nullopt;
  const Plane& plane = action_planes[action / 2];
  const auto found = std::find_if(grips.begin(), grips.end(), [&](const GripLayer& g) { return g.plane == plane; });
  if (found == grips.end()) return std::nullopt;
  return static_cast<std::size_t>(found - grips.begin());
}

Result<std::vector<Move>> parse_moves(const std::vector<std::string>& names, std::string_view text) {
  std::vector<Move> moves;
  for (const std::string_view token : white_space_tokens(text)) {
    TV_TRY(const Move move, parse_move(names, token));
    moves.push_back(move);
  }
  return moves;
}

}  // namespace tv
