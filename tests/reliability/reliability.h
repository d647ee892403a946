// The commands of the program. Each returns the program's exit status.

#pragma once

// sweep [SECONDS [SEED]]: fails calls in turn, in the time given or all of them.
int Sweep(int argc, char** argv);

// crashes: prints a table of the places at which a boot's end leaves a lasting mark, and which.
int Crashes(int argc, char** argv);
