// Builds a volume of N objects with a realistic mix of good files and every
// kind of problem, deterministically from a seed.
#pragma once

#include <cstdint>

#include "expect.h"
#include "model.h"

namespace kvfsim {

// Adds the generated volume "VOL1" to the model; fills `expected` when given.
void generate(Model& model, uint64_t objects, uint64_t seed, Expectations* expected);

}  // namespace kvfsim
