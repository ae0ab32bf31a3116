// All that differs between the libFuzzer programs: FUZZ_TARGET.
#include "libfuzzer_name.h"

const char* const fuzz_target_name = FUZZ_TARGET;
