// Reads a model from its JSON form and writes the live model back as JSON
// (the fixture format, also served as control/state.json).
#pragma once

#include <ostream>
#include <string>

#include "model.h"

namespace kvfsim {

// Fills `model` from fixture text; throws std::runtime_error naming the fault.
void loadFixture(const std::string& text, Model& model);
// Writes the model, live objects only, or the volumes without their objects;
// the caller holds the model's lock.
void writeState(const Model& model, std::ostream& out, bool withObjects = true);

}  // namespace kvfsim
