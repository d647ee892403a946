// The commands of the program. Each returns the program's exit status.

#pragma once

// sweep [SECONDS [SEED]]: fails calls in turn, in the time given or all of them.
int Sweep(int argc, char** argv);

// crashes: prints a table of the places at which a boot's end leaves a lasting mark, and which.
int Crashes(int argc, char** argv);

// growth [BOOTS]: looks for growth of memory and descriptors in one process.
int Growth(int argc, char** argv);

// cases: plays the devices that the input tells of.
int Cases(int argc, char** argv);

// huge [MIB]: measures the memory that a huge file takes.
int Huge(int argc, char** argv);
