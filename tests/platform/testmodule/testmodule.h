#pragma once
// What the tests of loading and their module agree on.

// The module appends a word to this file of the user's data folder for every step of its life: "construct",
// "attach", "detach" or "detach-at-exit", "destruct".
#define TESTMODULE_LOG "sndx-testmodule.log"
// Attaching is refused while a file of this name exists there.
#define TESTMODULE_REFUSAL "sndx-testmodule.refuse"
