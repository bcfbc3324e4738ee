#include "num/modint.hpp"

namespace tv {

ModInt::ModInt(const Int& value, Int modulus) : modulus_(std::move(modulus)) {
  TV_ENSURE(modulus_.sign() > 0, "ModInt modulus must be positive");
  value_ = rem(value, modulus_);
  if (value_.sign() < 0) value_ += modulus_;
}

Result<ModInt> ModInt::inverse() const {
  // Extended Euclid on (value, modulus), tracking only the coefficient of value.
  Int r0 = modulus_, r1 = value_;
  Int u0(0), u1(1);
  while (!r1.is_zero()) {
    Int q, r;
    divrem(r0, r1, q, r);
    r0 = std::move(r1);
    r1 = std::move(r);
    Int u = u0 - q * u1;
    u0 = std::move(u1);
    u1 = std::move(u);
  }
  if (!r0.is_one()) return division_failure("Not divisible");
  return ModInt(u0, modulus_);
}

Result<ModInt> div(const ModInt& a, const ModInt& b) {
  TV_CHECK(check_same_modulus(a, b));
  TV_TRY(ModInt inverse, b.inverse());
  return a * inverse;
}

Status check_same_modulus(const ModInt& a, const ModInt& b) {
  if (!(a.modulus() == b.modulus())) return Failure{FailureKind::Type, "Numbers have different moduli"};
  return {};
}

}  // namespace tv
