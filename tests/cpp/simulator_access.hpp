// What tests may do to a Simulator that no public operation does.
#pragma once

#include <gtest/gtest.h>

#include "simulator.hpp"

namespace tv {

struct SimulatorTestAccess {
  // Turns a layer without recording it: the one way to lock the plane of the last recorded
  // turn.
  static void rotate_unrecorded(Simulator& sim, std::size_t grip, const Quaternion& r) {
    ASSERT_TRUE(apply_rotation(sim.pieces_.pieces, sim.grips_[grip].moving, r).ok());
    ASSERT_TRUE(sim.rederive_grips().ok());
  }
};

}  // namespace tv
