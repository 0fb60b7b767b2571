// An outside program built against the installed package. The install check replaces
// this file by the example of the README, so that the README's code compiles and runs.
#include <wavestore/wavestore.h>

int main() { return 0; }
