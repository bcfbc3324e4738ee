#include "num/int.hpp"

#include <cstring>
#include <memory>

#include "num/siphash.hpp"

namespace tv {

// An Int read as a GMP operand: the big form in place, the small form in a temporary.
struct IntOperand {
  explicit IntOperand(const Int& x) {
    if (x.is_small()) {
      mpz_init_set_si(temporary_, x.small_);
      pointer_ = temporary_;
    } else {
      pointer_ = x.big_->value;
    }
  }
  ~IntOperand() {
    if (pointer_ == temporary_) mpz_clear(temporary_);
  }
  IntOperand(const IntOperand&) = delete;
  IntOperand& operator=(const IntOperand&) = delete;
  mpz_srcptr get() const { return pointer_; }

 private:
  mpz_t temporary_;
  mpz_srcptr pointer_;
};

Int Int::from_u64(std::uint64_t value) {
  if (value <= static_cast<std::uint64_t>(INT64_MAX)) return Int(static_cast<std::int64_t>(value));
  mpz_t v;
  mpz_init_set_ui(v, value);
  return adopt(v);
}

Int Int::big_from_i128(__int128 value) {
  const bool negative = value < 0;
  const unsigned __int128 m = negative ? 0 - static_cast<unsigned __int128>(value) : static_cast<unsigned __int128>(value);
  const std::uint64_t limbs[2] = {static_cast<std::uint64_t>(m), static_cast<std::uint64_t>(m >> 64)};
  mpz_t v;
  mpz_init(v);
  mpz_import(v, 2, -1, sizeof(std::uint64_t), 0, 0, limbs);
  if (negative) mpz_neg(v, v);
  return adopt(v);
}

IntAccumulator::IntAccumulator() {
  mpz_init(sum_);
  mpz_init(scratch_);
}

IntAccumulator::~IntAccumulator() {
  mpz_clear(sum_);
  mpz_clear(scratch_);
}

void IntAccumulator::add_scaled(const Int& a, std::int64_t s) {
  mpz_srcptr x = a.is_small() ? (mpz_set_si(scratch_, a.small_), scratch_) : a.big_->value;
  if (s >= 0)
    mpz_addmul_ui(sum_, x, static_cast<unsigned long>(s));
  else
    mpz_submul_ui(sum_, x, static_cast<unsigned long>(Int::magnitude(s)));
}

void IntAccumulator::add_product(const Int& a, const Int& b) {
  if (b.is_small()) return add_scaled(a, b.small_);
  if (a.is_small()) return add_scaled(b, a.small_);
  mpz_addmul(sum_, a.big_->value, b.big_->value);
}

Int IntAccumulator::take() {
  mpz_t v;
  mpz_init(v);
  mpz_swap(v, sum_);
  return Int::adopt(v);
}

Int Int::from_mpz(const mpz_t value) {
  mpz_t v;
  mpz_init_set(v, value);
  return adopt(v);
}

Result<Int> Int::parse(std::string_view decimal) {
  std::string_view digits = decimal.substr(!decimal.empty() && decimal[0] == '-' ? 1 : 0);
  bool valid = !digits.empty();
  for (char c : digits) valid = valid && c >= '0' && c <= '9';
  if (!valid) return parse_failure("invalid integer: " + std::string(decimal));
  mpz_t v;
  mpz_init_set_str(v, std::string(decimal).c_str(), 10);
  return adopt(v);
}

Int Int::adopt(mpz_t value) {
  Int result;
  if (mpz_fits_slong_p(value)) {
    result.small_ = mpz_get_si(value);
    mpz_clear(value);
  } else {
    result.big_ = new Big;
    // Move the limbs over without copying them.
    std::memcpy(result.big_->value, value, sizeof(mpz_t));
  }
  return result;
}

void Int::free_big(Big* big) {
  mpz_clear(big->value);
  delete big;
}

void Int::get_mpz(mpz_t out) const {
  if (is_small())
    mpz_set_si(out, small_);
  else
    mpz_set(out, big_->value);
}

int Int::big_sign() const { return mpz_sgn(big_->value); }

bool Int::is_odd() const { return is_small() ? (small_ & 1) != 0 : mpz_odd_p(big_->value) != 0; }

std::uint64_t Int::bit_length() const {
  if (is_small()) return small_ == 0 ? 0 : 64 - __builtin_clzll(magnitude(small_));
  return mpz_sizeinbase(big_->value, 2);
}

Int Int::big_binary(const Int& a, const Int& b, void (*operation)(mpz_ptr, mpz_srcptr, mpz_srcptr)) {
  IntOperand x(a), y(b);
  mpz_t r;
  mpz_init(r);
  operation(r, x.get(), y.get());
  return adopt(r);
}

Int Int::big_add(const Int& a, const Int& b) { return big_binary(a, b, mpz_add); }
Int Int::big_sub(const Int& a, const Int& b) { return big_binary(a, b, mpz_sub); }
Int Int::big_mul(const Int& a, const Int& b) { return big_binary(a, b, mpz_mul); }
Int Int::big_gcd(const Int& a, const Int& b) { return big_binary(a, b, mpz_gcd); }

Int Int::big_neg(const Int& a) {
  IntOperand x(a);
  mpz_t r;
  mpz_init(r);
  mpz_neg(r, x.get());
  return adopt(r);
}

int Int::big_compare(const Int& a, const Int& b) {
  IntOperand x(a), y(b);
  const int c = mpz_cmp(x.get(), y.get());
  return (c > 0) - (c < 0);
}

void divrem(const Int& a, const Int& b, Int& quotient, Int& remainder) {
  TV_ENSURE(!b.is_zero(), "Int division by zero");
  if (a.is_small() && b.is_small() && !(a.small_ == INT64_MIN && b.small_ == -1)) {
    quotient = Int(a.small_ / b.small_);
    remainder = Int(a.small_ % b.small_);
    return;
  }
  IntOperand x(a), y(b);
  mpz_t q, r;
  mpz_init(q);
  mpz_init(r);
  mpz_tdiv_qr(q, r, x.get(), y.get());
  quotient = Int::adopt(q);
  remainder = Int::adopt(r);
}

Int div(const Int& a, const Int& b) {
  Int q, r;
  divrem(a, b, q, r);
  return q;
}

Int rem(const Int& a, const Int& b) {
  Int q, r;
  divrem(a, b, q, r);
  return r;
}

Result<Int> div_exact(const Int& a, const Int& b) {
  if (b.is_zero()) return division_failure("Division by zero");
  Int q, r;
  divrem(a, b, q, r);
  if (!r.is_zero()) return division_failure("Not divisible");
  return q;
}

Int Int::pow(std::uint32_t exponent) const {
  Int result(1);
  Int base = *this;
  while (exponent != 0) {
    if (exponent & 1) result *= base;
    exponent >>= 1;
    if (exponent != 0) base *= base;
  }
  return result;
}

Int Int::shifted_left(std::uint64_t bits) const {
  if (is_small() && bit_length() + bits < 63) return Int(static_cast<std::int64_t>(magnitude(small_) << bits) * sign());
  IntOperand x(*this);
  mpz_t r;
  mpz_init(r);
  mpz_mul_2exp(r, x.get(), bits);
  return adopt(r);
}

Int Int::factorial(std::uint32_t n) {
  mpz_t r;
  mpz_init(r);
  mpz_fac_ui(r, n);
  return adopt(r);
}

Int Int::binomial(std::uint32_t n, std::uint32_t k) {
  mpz_t r;
  mpz_init(r);
  mpz_bin_uiui(r, n, k);
  return adopt(r);
}

std::string Int::to_string() const {
  if (is_small()) return std::to_string(small_);
  std::string text(mpz_sizeinbase(big_->value, 10) + 2, '\0');
  mpz_get_str(text.data(), 10, big_->value);
  text.resize(std::strlen(text.c_str()));
  return text;
}

void Int::hash_into(SipHasher13& hasher) const {
  if (is_small()) {
    hasher.write_u64(static_cast<std::uint64_t>(small_));
    return;
  }
  const mpz_srcptr v = big_->value;
  std::size_t count = 0;
  std::unique_ptr<std::uint64_t[]> limbs(new std::uint64_t[mpz_sizeinbase(v, 2) / 64 + 1]);
  mpz_export(limbs.get(), &count, -1, sizeof(std::uint64_t), 0, 0, v);
  hasher.write_u64(mpz_sgn(v) < 0 ? 0 : 2);
  hasher.write_u64(count);
  for (std::size_t i = 0; i < count; ++i) hasher.write_u64(limbs[i]);
}

}  // namespace tv
