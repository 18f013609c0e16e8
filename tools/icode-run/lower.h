// Lowering: turns function bodies into the code of the machine, once, before anything runs.

#ifndef ICODE_RUN_LOWER_H
#define ICODE_RUN_LOWER_H

#include "tools/icode-run/image.h"
#include "tools/icode-run/machine.h"

namespace run {

struct lower_options {
    bool check = false; // add the checks for locals without a value and outside their block
    bool trace = false; // add the notes of volatile accesses
};

// Lowers all functions. Strings and functions whose address is taken get their places, so `image.mem` is
// sealed only behind this. Throws bad_program for a body of impossible shape, and fault when memory is full.
// An operator that has no meaning here becomes a fault at the place where it would be executed.
program_code lower_program(image& image, const lower_options& options);

} // namespace run

#endif
