// The commands of the program. Each returns the program's exit status.

#pragma once

// sweep [SECONDS [SEED]]: fails calls in turn, in the time given or all of them.
int Sweep(int argc, char** argv);
